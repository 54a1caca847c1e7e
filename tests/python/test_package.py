"""The package as it is installed, found and imported."""

import importlib.util
import os
import subprocess
import sys
import zipfile
from pathlib import Path

import pytest

import gksensors
from gksensors import _program
from conftest import SOURCES

PYTHON = SOURCES / "python"


def builder():
    spec = importlib.util.spec_from_file_location("build_package", PYTHON / "build_package.py")
    module = importlib.util.module_from_spec(spec)
    spec.loader.exec_module(module)
    return module


def test_the_wheel_holds_the_package_and_nothing_else(tmp_path):
    backend = builder()
    name = backend.build_wheel(str(tmp_path))
    again = tmp_path / "again"
    again.mkdir()
    assert backend.build_wheel(str(again)) == name
    assert (again / name).read_bytes() == (tmp_path / name).read_bytes()
    with zipfile.ZipFile(tmp_path / name) as wheel:
        assert wheel.testzip() is None
        names = wheel.namelist()
        record = wheel.read(f"gksensors-{backend.version()}.dist-info/RECORD").decode()
    sources = {
        f"gksensors/{path.name}" for path in (PYTHON / "gksensors").iterdir() if path.is_file()
    }
    assert {one for one in names if ".dist-info/" not in one} == sources
    assert "gksensors/py.typed" in sources
    assert [line.split(",")[0] for line in record.splitlines()] == names


def test_an_unpacked_wheel_works_as_a_package(tmp_path):
    backend = builder()
    with zipfile.ZipFile(tmp_path / backend.build_wheel(str(tmp_path))) as wheel:
        wheel.extractall(tmp_path / "site")
    program = (
        "import gksensors; print(gksensors.__version__, gksensors.__file__); gksensors.aio.connect"
    )
    environment = {**os.environ, "PYTHONPATH": str(tmp_path / "site")}
    out = subprocess.run(
        [sys.executable, "-c", program], env=environment, capture_output=True, text=True, check=True
    ).stdout
    assert out == f"{backend.version()} {tmp_path}/site/gksensors/__init__.py\n"


def test_pip_installs_it_without_any_index(tmp_path):
    pytest.importorskip("pip")
    command = [sys.executable, "-m", "pip", "install", "--quiet", "--no-index", "--no-deps"]
    environment = {
        **os.environ,
        "PIP_DISABLE_PIP_VERSION_CHECK": "1",
        "PIP_ROOT_USER_ACTION": "ignore",
    }
    subprocess.run(
        [*command, "--target", str(tmp_path / "site"), str(PYTHON)],
        env=environment,
        check=True,
        capture_output=True,
        cwd=tmp_path,
    )
    assert (tmp_path / "site" / "gksensors" / "py.typed").exists()


def test_importing_takes_what_is_not_needed_along_only_when_it_is_used():
    program = (
        "import sys, gksensors\n"
        "names = ('pandas', 'matplotlib', 'asyncio', 'pytest')\n"
        "print([name for name in names if name in sys.modules])"
    )
    out = subprocess.run(
        [sys.executable, "-c", program], capture_output=True, text=True, check=True
    )
    assert out.stdout == "[]\n"


def test_the_program_is_named_or_beside_the_package_or_on_the_path(tmp_path, monkeypatch):
    program = os.environ["GK_PROGRAM"]
    site = tmp_path / "lib" / "python"
    site.mkdir(parents=True)
    (site / "gksensors").symlink_to(Path(gksensors.__file__).resolve().parent)
    # A build of the sources lies beside a linked package; a copy has none.
    copy = tmp_path / "alone" / "gksensors"
    copy.mkdir(parents=True)
    for file in (PYTHON / "gksensors").glob("*.py"):
        (copy / file.name).write_text(file.read_text())

    def found(folder, **environment):
        monkeypatch.delenv("GK_PROGRAM", raising=False)
        monkeypatch.setenv("PATH", "/nowhere")
        for name, value in environment.items():
            monkeypatch.setenv(name, value)
        monkeypatch.setattr(_program, "__file__", str(folder / "gksensors" / "_program.py"))
        try:
            return _program.find_program()
        except FileNotFoundError as error:
            return str(error)

    def make(folder):
        folder.mkdir(parents=True, exist_ok=True)
        (folder / "gk").symlink_to(program)
        return str(folder / "gk")

    assert "there is no gk beside this package or on the PATH" in found(copy.parent)
    on_path = make(tmp_path / "on_path")
    path = str(tmp_path / "on_path")
    assert found(copy.parent, PATH=path) == on_path
    beside = make(tmp_path / "lib" / "bin")
    assert found(site, PATH=path) == beside
    assert found(site, PATH=path, GK_PROGRAM=program) == program
    assert found(site, PATH=path, GK_PROGRAM="gk") == on_path


def test_the_build_folder_is_used_with_one_line():
    activate = os.environ.get("GK_ACTIVATE")
    if not activate:
        pytest.skip("no build folder")
    program = "import gksensors; print(gksensors.replay)"
    shell = f'. {activate}; gk --version; "{sys.executable}" -c "{program}"'
    environment = {"PATH": "/usr/bin:/bin", "HOME": "/"}
    ended = subprocess.run(["sh", "-euc", shell], env=environment, capture_output=True, text=True)
    assert (ended.returncode, ended.stderr) == (0, "")
    assert "<function replay" in ended.stdout


def test_everything_public_says_what_it_is():
    for name in gksensors.__all__:
        thing = getattr(gksensors, name)
        assert thing.__doc__, name
        for member, value in vars(thing).items() if isinstance(thing, type) else ():
            if not member.startswith("_") and callable(value):
                assert value.__doc__, f"{name}.{member}"
    assert set(gksensors.__all__) <= set(dir(gksensors))
