/** A touch sensor, a bumper or the chest button. */
export interface TouchZone {
  id: string;
  label: string;
  /** Its member in the messages of "/touch". */
  field: string;
  /** The part of its device key that names it. */
  device: string;
}

export const kTouchZones: readonly TouchZone[] = [
  { id: "HeadFront", label: "Head, front", field: "head_front", device: "Head/Touch/Front" },
  { id: "HeadMiddle", label: "Head, middle", field: "head_middle", device: "Head/Touch/Middle" },
  { id: "HeadRear", label: "Head, rear", field: "head_rear", device: "Head/Touch/Rear" },
  { id: "ChestButton", label: "Chest button", field: "chest_button", device: "ChestBoard/Button" },
  {
    id: "LHandBack",
    label: "Left hand, back",
    field: "left_hand_back",
    device: "LHand/Touch/Back",
  },
  {
    id: "LHandLeft",
    label: "Left hand, left",
    field: "left_hand_left",
    device: "LHand/Touch/Left",
  },
  {
    id: "LHandRight",
    label: "Left hand, right",
    field: "left_hand_right",
    device: "LHand/Touch/Right",
  },
  {
    id: "RHandBack",
    label: "Right hand, back",
    field: "right_hand_back",
    device: "RHand/Touch/Back",
  },
  {
    id: "RHandLeft",
    label: "Right hand, left",
    field: "right_hand_left",
    device: "RHand/Touch/Left",
  },
  {
    id: "RHandRight",
    label: "Right hand, right",
    field: "right_hand_right",
    device: "RHand/Touch/Right",
  },
  {
    id: "LFootLeft",
    label: "Left foot, left bumper",
    field: "left_foot_bumper_left",
    device: "LFoot/Bumper/Left",
  },
  {
    id: "LFootRight",
    label: "Left foot, right bumper",
    field: "left_foot_bumper_right",
    device: "LFoot/Bumper/Right",
  },
  {
    id: "RFootLeft",
    label: "Right foot, left bumper",
    field: "right_foot_bumper_left",
    device: "RFoot/Bumper/Left",
  },
  {
    id: "RFootRight",
    label: "Right foot, right bumper",
    field: "right_foot_bumper_right",
    device: "RFoot/Bumper/Right",
  },
];
