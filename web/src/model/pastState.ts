import { kStateTopics } from "../host/channels.js";
import type { Moment } from "./history.js";
import type { RobotState } from "./robotState.js";

/** The robot at a moment of the past. @param announced the pose that had been announced by then */
export function stateOf(moment: Moment, announced: string | undefined): RobotState {
  const state: RobotState = {};
  for (const [topic, message] of Object.entries(moment)) {
    if (topic === "/joint_states") {
      state.joints = new Map(Object.entries(message));
    } else {
      Object.assign(state, kStateTopics[topic]?.(message));
    }
  }
  if (state.pose !== undefined) {
    // Only numbers are remembered; the name is told by the event.
    state.pose = { ...state.pose, announced: announced ?? state.pose.running ?? "Unknown" };
  }
  return state;
}
