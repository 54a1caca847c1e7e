// ROS messages as other programs decode and encode them.

import rosmsg from "@foxglove/rosmsg";
import serialization from "@foxglove/rosmsg2-serialization";

const {parse} = rosmsg;
const {MessageReader, MessageWriter} = serialization;

/** Reader and writer of the type that a `ros2msg` text defines. */
export function codecOf(definition) {
  const types = parse(definition, {ros2: true});
  return {types, reader: new MessageReader(types), writer: new MessageWriter(types)};
}

/** A decoded message as JSON can hold it: arrays without types, texts for what is no number. */
export function plain(value) {
  if (typeof value === "number" && !Number.isFinite(value)) {
    return String(value);
  }
  if (typeof value !== "object" || value === null) {
    return value;
  }
  if (Array.isArray(value) || ArrayBuffer.isView(value)) {
    return Array.from(value, plain);
  }
  return Object.fromEntries(Object.entries(value).map(([name, member]) => [name, plain(member)]));
}
