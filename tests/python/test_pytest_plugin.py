"""What pytest gets: a fixture, scenarios as tests, an option."""

import os

import pytest


@pytest.fixture
def project(pytester):
    """A folder with tests of somebody who uses the plug-in."""
    pytester.makepyfile(
        test_robot="""
        def test_file(gk_replay):
            run = gk_replay("fall.csv", sample="robotPose")
            run.expect(event="robotPoseChanged", value="Belly")
            assert len(run.samples["robotPose"]) == 501

        def test_lines(gk_replay):
            touched = "Device/SubDeviceList/Head/Touch/Front/Sensor/Value"
            run = gk_replay([{"t": 1, "set": {touched: 1.0}}, {"t": 2, "end": True}])
            run.expect(event="FrontTactilTouched", value=1.0, t=1.0, within=0.05)
            other = gk_replay([{"t": 0.1, "set": {touched: 0.0}}])
            assert other.files != run.files

        def test_failure(gk_replay):
            gk_replay("fall.csv").expect(event="robotPoseChanged", value="Back", t=1.0)
        """
    )
    rows = "".join(f"{t / 50},{1.5 if t > 100 else 0.0}\n" for t in range(501))
    key = "Device/SubDeviceList/InertialSensor/AngleY/Sensor/Value"
    (pytester.path / "fall.csv").write_text(f"time,{key}\n{rows}")
    return pytester


def run(project, *arguments):
    return project.runpytest_subprocess("-p", "no:cacheprovider", *arguments)


def test_the_fixture_runs_files_and_lines(project):
    result = run(project)
    result.assert_outcomes(passed=2, failed=1)
    result.stdout.fnmatch_lines(
        ['*ExpectationFailed: expected robotPoseChanged "Back" within 0.1 s of 1.000, but *']
    )


def test_a_file_is_found_beside_its_test(project):
    folder = project.mkdir("elsewhere")
    os.chdir(folder)
    run(project, "../test_robot.py", "-k", "test_file").assert_outcomes(passed=1)


def scenarios(pytester):
    good = '{"t":0.2,"expect":{"key":"robotPose","above":-1}}\n{"t":0.3,"end":true}\n'
    bad = good + '{"t":0.4,"never":{"event":"robotPoseChanged"}}\n'.replace('"t":0.4,', "")
    pytester.makefile(".jsonl", good=good, bad=bad, plain='{"t":0.1,"get":["robotPose"]}\n')
    pytester.makefile(".jsonl", broken='{"t":0.2,"expect":{"keey":"robotPose"}}\n')
    for name in ("plain.expect.jsonl", "good.expected.jsonl.new", "output.expected.jsonl"):
        (pytester.path / name).write_text(good)
    (pytester.path / "out.jsonl").write_text('{"t":0,"kind":"event","name":"expect","value":1}\n')


def test_scenarios_with_expectations_are_tests(pytester):
    scenarios(pytester)
    result = run(pytester, "-v")
    result.assert_outcomes(passed=1, failed=2)
    result.stdout.fnmatch_lines_random(
        [
            "good.jsonl::expectations PASSED*",
            "bad.jsonl::expectations FAILED*",
            "broken.jsonl::expectations FAILED*",
            "bad.jsonl:3: expected no robotPoseChanged*",
            "*broken.jsonl:1: *",
            "  alone: gk test *bad.jsonl",
        ]
    )
    result.stdout.no_fnmatch_line("*Traceback*")
    assert "site-packages" not in result.stdout.str()


def test_a_golden_file_beside_a_scenario_counts(pytester):
    pytester.makefile(".jsonl", good='{"t":0.2,"expect":{"key":"robotPose","above":-1}}\n')
    (pytester.path / "good.expected.jsonl").write_text('{"t":0,"kind":"event"}\n')
    run(pytester).assert_outcomes(failed=1)


def test_a_scenario_is_chosen_by_its_name(pytester):
    scenarios(pytester)
    run(pytester, "good.jsonl").assert_outcomes(passed=1)
    run(pytester, "-k", "good").assert_outcomes(passed=1)


def test_the_program_is_an_option(project, monkeypatch):
    program = os.environ["GK_PROGRAM"]
    monkeypatch.setenv("GK_PROGRAM", "/nowhere/gk")
    run(project, "-k", "test_file").assert_outcomes(failed=1)
    run(project, "-k", "test_file", f"--gk-program={program}").assert_outcomes(passed=1)
    monkeypatch.chdir(os.path.dirname(program))
    run(
        project, "--rootdir", project.path, project.path, "-k", "test_file", "--gk-program=./gk"
    ).assert_outcomes(passed=1)
