"""Recordings message by message, and what two runs reported differently."""

import pytest

import gksensors


def test_topics_and_messages(night):
    recording = gksensors.Recording(night)
    assert recording.topics["/events"].schema == "gk.Events"
    events = list(recording.messages("/events"))
    assert len(events) == recording.topics["/events"].messages
    run = gksensors.replay(night)
    assert [(e.value["name"], e.value["value"], e.value["t_s"]) for e in events] == [
        (event.name, event.value, event.time) for event in run.events
    ]
    assert [message.time for message in events] == [event.time for event in run.events]
    topics = {message.topic for message in recording.messages()}
    assert topics <= set(recording.topics) and len(topics) > 10


def test_what_is_no_recording_or_topic(tmp_path, night, data):
    with pytest.raises(FileNotFoundError):
        gksensors.Recording(tmp_path / "nowhere.mcap")
    with pytest.raises(gksensors.InputError, match="does not begin as an MCAP file") as failed:
        gksensors.Recording(data / "feet_stand.csv")
    assert failed.value.file == str(data / "feet_stand.csv")
    with pytest.raises(KeyError, match="has no topic /imo; it has .*/imu"):
        gksensors.Recording(night).messages("/imo")


def test_a_topic_as_a_table(night):
    pytest.importorskip("pandas")
    frame = gksensors.Recording(night).to_pandas("/imu")
    assert frame.index.name == "time" and frame.index[0] == 0.0
    assert frame["angle_y_rad"].iloc[-1] > 1.0


def test_a_recording_at_a_glance(night):
    recording = gksensors.Recording(night)
    messages = len(list(recording.messages()))
    topics = len(recording.topics)
    assert repr(recording) == f"<Recording night.mcap: {topics} topics, {messages} messages>"
    assert "<td>/imu</td>" in recording._repr_html_()


def test_the_same_input_is_no_different(night):
    difference = gksensors.diff(night)
    assert difference.same and difference.differences == []
    assert repr(difference).startswith("<Diff: the same, ")


def test_differences_have_names_times_and_values(data):
    forward, backward = data / "imu_fall_forward.csv", data / "imu_fall_backward.csv"
    difference = gksensors.diff(forward, backward)
    assert not difference.same
    assert difference.differences == [
        gksensors.Difference("changed", "robotPoseChanged", 8.16, "Belly", 8.02, "Back")
    ]
    assert (difference.missing, difference.extra, difference.changed, difference.moved) == (
        0,
        0,
        1,
        0,
    )
    assert difference.names["robotPoseChanged"]["changed"] == 1
    assert repr(difference) == "<Diff: 0 missing, 0 extra, 1 changed, 0 moved>"
    assert "imu_fall_forward.csv" in difference._repr_html_()
    assert gksensors.diff(forward, backward, ignore="robotPose*").same
    assert gksensors.diff(forward, backward, only=["order"]).same


def test_runs_are_compared_as_their_files_are(data):
    forward, backward = data / "imu_fall_forward.csv", data / "imu_fall_backward.csv"
    run = gksensors.replay(forward)
    difference = gksensors.diff(run, gksensors.replay(backward))
    assert difference.differences == gksensors.diff(forward, backward).differences
    assert "imu_fall_backward.csv" in difference._repr_html_()
    assert gksensors.diff(run, forward).same
    assert not gksensors.diff(run, gksensors.replay(forward, until=8.1)).same


def test_tolerances(tmp_path):
    for name, at, value in (("a", 0.1, 1.0), ("b", 0.12, 1.25)):
        line = f'{{"t":{at},"kind":"event","name":"E","value":{value}}}\n'
        (tmp_path / f"{name}.jsonl").write_text(line)
    a, b = tmp_path / "a.jsonl", tmp_path / "b.jsonl"
    assert gksensors.diff(a, b).changed == 1
    assert gksensors.diff(a, b, tolerance_value=0.25).moved == 1
    assert gksensors.diff(a, b, tolerance_value=0.25, tolerance_time=0.02).same


def test_differences_as_a_table(data):
    pytest.importorskip("pandas")
    frame = gksensors.diff(
        data / "imu_fall_forward.csv", data / "imu_fall_backward.csv"
    ).to_pandas()
    assert frame.loc[0, "a_value"] == "Belly"


def test_files_that_cannot_be_compared(tmp_path, data):
    with pytest.raises(FileNotFoundError):
        gksensors.diff(tmp_path / "a.csv", data / "feet_stand.csv")
    bad = tmp_path / "bad.csv"
    bad.write_text("time,a\n0,x\n")
    with pytest.raises(gksensors.InputError) as failed:
        gksensors.diff(bad, data / "feet_stand.csv")
    assert (failed.value.file, failed.value.line) == (str(bad), 2)
