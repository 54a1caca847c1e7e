"""Recordings and scenarios through the library, and what is made of them."""

import concurrent.futures
import json
import pathlib
import pickle
import subprocess
import os

import numpy as np
import pytest

import gksensors
from conftest import BOARD, KEY


def scenario(folder, *lines):
    path = folder / "scenario.jsonl"
    path.write_text("".join(json.dumps(line) + "\n" for line in lines))
    return path


def test_events_are_those_of_the_program_in_order(data):
    run = gksensors.replay(data / "imu_fall_forward.csv")
    out = subprocess.run(
        [
            os.environ["GK_PROGRAM"],
            "replay",
            "--out",
            "-",
            "--only",
            "event,micro",
            data / "imu_fall_forward.csv",
        ],
        capture_output=True,
        check=True,
    ).stdout
    lines = [json.loads(line) for line in out.splitlines()]
    assert [(e.time, e.kind, e.name, e.value) for e in run.events] == [
        (line["t"], line["kind"], line["name"], line["value"]) for line in lines
    ]
    assert run.statistics[:3] == (15.0, 751, len(lines))
    assert {type(event) for event in run.events} == {gksensors.Event}


def test_one_path_is_as_good_as_a_list_and_a_text_as_a_path(data):
    path = data / "feet_stand.csv"
    runs = [gksensors.replay(files) for files in (path, str(path), [path], (str(path),))]
    assert all(run.events == runs[0].events and run.files == (str(path),) for run in runs)


def test_samples_are_columns_with_a_row_after_each_tick(data):
    run = gksensors.replay(data / "imu_fall_forward.csv", sample=[KEY, BOARD, "robotPose"])
    samples = run.samples
    assert list(samples) == [KEY, BOARD, "robotPose"]
    np.testing.assert_array_equal(samples.time, np.arange(751) * 20_000 / 1e6)
    assert samples.time.dtype == np.float64
    assert samples[KEY].dtype == np.float32 and samples[BOARD].dtype == np.int32
    # It lies in the end: more than 45 degrees.
    assert samples[KEY][-1] > np.pi / 4 > samples[KEY][0]
    assert samples.array.dtype.names == ("time", KEY, BOARD, "robotPose")


def test_samples_say_the_same_as_lines(data, tmp_path):
    out = tmp_path / "out.jsonl"
    file = data / "biped_walk.csv"
    command = [os.environ["GK_PROGRAM"], "replay", file, "--out", out, "--only", "sample"]
    subprocess.run([*command, f"--sample={KEY},robotPose"], check=True, capture_output=True)
    samples = gksensors.replay(file, sample=(KEY, "robotPose")).samples
    lines = [json.loads(line) for line in out.read_text().splitlines()]
    assert samples.time.tolist() == [line["t"] for line in lines]
    for key in samples:
        np.testing.assert_array_equal(
            samples[key], np.array([line["values"][key] for line in lines], np.float32)
        )


def test_samples_outlive_the_run_and_cannot_be_written(data):
    samples = gksensors.replay(data / "feet_stand.csv", sample=KEY).samples
    array = samples[KEY]
    del samples
    assert np.isfinite(array.sum())
    with pytest.raises(ValueError):
        array[0] = 1.0


def test_runs_go_to_other_processes(data):
    run = gksensors.replay(data / "imu_fall_forward.csv", sample=KEY)
    other = pickle.loads(pickle.dumps(run))
    assert other.events == run.events and repr(other) == repr(run)
    np.testing.assert_array_equal(other.samples[KEY], run.samples[KEY])


def test_a_float_that_is_not_there_yet_is_nan(tmp_path):
    path = scenario(
        tmp_path,
        {"t": 0.05, "call": "GKMemory.insertData", "args": ["Mine", 2.5]},
        {"t": 0.08, "end": True},
    )
    samples = gksensors.replay(path, sample="Mine").samples
    np.testing.assert_array_equal(samples["Mine"], np.float32([np.nan, np.nan, np.nan, 2.5, 2.5]))


def test_a_run_of_no_ticks_has_empty_columns(tmp_path):
    path = scenario(tmp_path, {"t": 0, "exit": True})
    samples = gksensors.replay(path, sample=["robotPose"]).samples
    assert samples["robotPose"].shape == (0,)
    assert repr(samples) == "<Samples: 1 key, no ticks>"


def test_a_sampled_text_is_refused_with_its_key(data):
    with pytest.raises(gksensors.ProgramError, match="robotPoseChanged is no number"):
        gksensors.replay(data / "feet_stand.csv", sample="robotPoseChanged")


def test_a_key_that_was_never_there_is_warned_of(data):
    with pytest.warns(UserWarning, match="there was never a key robotPos; did you mean robotPose"):
        run = gksensors.replay(data / "feet_stand.csv", sample="robotPos")
    assert np.isnan(run.samples["robotPos"]).all()


def test_a_key_that_was_not_sampled_names_the_nearest(data):
    samples = gksensors.replay(data / "feet_stand.csv", sample="robotPose").samples
    with pytest.raises(KeyError, match="did you mean robotPose"):
        samples["robotPoze"]


def test_many_long_keys_with_odd_letters_have_their_columns(data):
    # Longer together than what numpy.load takes without being asked.
    keys = [f"Mine/{'x' * 100}/{number}" for number in range(700)] + ["Mein/Maß 'a\\b\""]
    with pytest.warns(UserWarning):
        samples = gksensors.replay(data / "feet_stand.csv", sample=keys, until=1).samples
    assert list(samples) == keys
    assert samples.array.shape == (51,)


def test_options_reach_the_run(tmp_path, data):
    path = scenario(tmp_path, {"t": 0.1, "get": ["Settings/GKMine/Text"]}, {"t": 9, "end": True})
    settings = {"GKMine/Text": "1", "GKMine/Number": np.float32(0.5), "GKMine/Flag": True}
    run = gksensors.replay(path, until=0.2, settings=settings)
    assert run.statistics.ticks == 11
    run.expect(key="Settings/GKMine/Text", value="1", t=0.1)
    run.expect(key="Settings/GKMine/Number", value=0.5, t=0.1)
    run.expect(key="Settings/GKMine/Flag", value=True, t=0.1)
    sonar = gksensors.replay(data / "us_wallrobot.csv", subscribe="GKSonar")
    assert any(event.name.startswith("Sonar") for event in sonar.events)
    assert not any(
        event.name.startswith("Sonar")
        for event in gksensors.replay(data / "us_wallrobot.csv").events
    )


def test_log_lines_of_all_levels_are_there(data):
    run = gksensors.replay(data / "feet_stand.csv", without="GKResourceManager")
    line = run.log[0]
    assert isinstance(line, gksensors.LogLine) and 1 <= line.level <= 6 and line.text


def test_expectations_that_hold_say_nothing(data):
    run = gksensors.replay(data / "imu_fall_forward.csv")
    run.expect(event="robotPoseChanged", value="Belly", t=8.1, within=0.1)
    run.expect(event="robotPoseChanged", at_least=1, at_most=9)
    run.expect(order=["robotPoseChanged", "robotPoseChanged"])
    run.never(event="robotPoseChanged", value="Back")
    run.never(event="robotPoseChanged", t=9.0, for_=2.0)


def test_an_expectation_that_fails_tells_what_came_nearest(data):
    run = gksensors.replay(data / "imu_fall_forward.csv")
    with pytest.raises(gksensors.ExpectationFailed) as failed:
        run.expect(event="robotPoseChanged", value="Back", t=8.1, within=0.1)
    assert isinstance(failed.value, AssertionError)
    assert str(failed.value) == (
        'expected robotPoseChanged "Back" within 0.1 s of 8.100, '
        'but robotPoseChanged "Belly" at 8.160 s'
    )
    with pytest.raises(gksensors.ExpectationFailed, match="expected no robotPoseChanged"):
        run.never(event="robotPoseChanged", t=8.0)


def test_what_is_no_expectation_is_refused(data):
    run = gksensors.replay(data / "feet_stand.csv")
    with pytest.raises(gksensors.InputError, match="^expect: "):
        run.expect(evnt="robotPoseChanged")
    with pytest.raises(gksensors.InputError, match="^never: "):
        run.never(event="robotPoseChanged", whithin=1.0)
    with pytest.raises(TypeError, match="is no value of the robot"):
        run.expect(event="robotPoseChanged", value=object())


def test_what_files_expect_themselves_is_told(tmp_path):
    path = scenario(
        tmp_path,
        {"t": 0.1, "expect": {"event": "Nothing"}},
        {"t": 1, "end": True},
    )
    run = gksensors.replay(path)
    assert len(run.failures) == 1 and run.failures[0].startswith(f"{path}:1: expected Nothing")
    run.expect(event="robotPoseChanged")
    with pytest.raises(gksensors.ExpectationFailed):
        run.expect(event="Never")


def test_malformed_input_tells_file_line_and_reason(tmp_path):
    path = tmp_path / "bad.csv"
    path.write_text("time,a\n0,1\n1,x\n")
    with pytest.raises(gksensors.InputError) as failed:
        gksensors.replay(path)
    error = pickle.loads(pickle.dumps(failed.value))
    assert (error.file, error.line, error.reason) == (str(path), 3, 'column "a": "x" is no number')
    assert str(error) == f'{path}:3: column "a": "x" is no number'
    assert isinstance(error, ValueError)


@pytest.mark.parametrize(
    "options, error, text",
    [
        ({"files": "nowhere.csv"}, FileNotFoundError, "nowhere.csv"),
        ({"files": []}, gksensors.InputError, "no file"),
        ({"subscribe": "GKSonr"}, gksensors.InputError, "did you mean GKSonar"),
        ({"without": "DCN"}, gksensors.InputError, "--without"),
        ({"library": "/nowhere.so"}, gksensors.ProgramError, "/nowhere.so"),
        ({"until": "soon"}, ValueError, "soon"),
        ({"sample": ["a", "a"]}, gksensors.InputError, "two columns a"),
        ({"sample": "time"}, gksensors.InputError, '"time" is the name'),
    ],
)
def test_bad_arguments_raise(data, options, error, text):
    with pytest.raises(error, match=text):
        gksensors.replay(**{"files": data / "feet_stand.csv", **options})


def test_a_file_that_begins_as_an_option_does_is_a_file(tmp_path, monkeypatch, data):
    monkeypatch.chdir(tmp_path)
    pathlib.Path("-q.csv").write_bytes((data / "feet_stand.csv").read_bytes())
    assert gksensors.replay("-q.csv").events


def test_replays_run_side_by_side(data):
    files = [data / "imu_fall_forward.csv", data / "imu_fall_backward.csv"] * 8
    with concurrent.futures.ThreadPoolExecutor(8) as pool:
        runs = list(pool.map(gksensors.replay, files))
    assert [run.events[-1].value for run in runs] == ["Belly", "Back"] * 8


def test_reports_are_pages(tmp_path, data):
    report = gksensors.replay(data / "imu_fall_forward.csv").report()
    report.save(tmp_path / "page.html")
    page = (tmp_path / "page.html").read_text()
    assert page == report.html and "imu_fall_forward.csv" in page
    assert "<script>" not in report._repr_html_() and "sandbox" in report._repr_html_()


def test_what_people_see_is_short_and_escaped(tmp_path):
    path = tmp_path / "<b>.jsonl"
    path.write_text('{"t":0.1,"call":"GKMemory.raiseEvent","args":["<i>","<script>"]}\n')
    run = gksensors.replay(path, sample="robotPose")
    assert repr(run).startswith("<Run of <b>.jsonl: 0.1") and "1 key sampled" in repr(run)
    page = run._repr_html_()
    assert "<script" not in page and "<b>" not in page and "<i>" not in page
    assert "&lt;script&gt;" in page
    assert "<table>" in run.samples._repr_html_()


def test_tables_of_pandas(data):
    pandas = pytest.importorskip("pandas")
    run = gksensors.replay(data / "imu_fall_forward.csv", sample=[KEY])
    frame = run.to_pandas()
    assert frame.index.name == "time" and list(frame) == [KEY] and len(frame) == 751
    events = run.to_pandas("events")
    assert list(events) == ["name", "value", "kind"]
    assert events[events.name == "robotPoseChanged"].value.iloc[-1] == "Belly"
    assert list(run.to_pandas("log")) == ["level", "category", "function", "text"]
    assert isinstance(gksensors.replay(data / "feet_stand.csv").to_pandas(), pandas.DataFrame)
    with pytest.raises(ValueError, match="sampels"):
        run.to_pandas("sampels")
