"""docs/python.md, from top to bottom in one interpreter.

Every block runs and prints what its comments say.
"""

import contextlib
import io
import os
import re
import subprocess
import sys

import pytest

from conftest import SOURCES

PAGE = SOURCES / "docs" / "python.md"
DEFAULT = "127.0.0.1:8090"


def blocks():
    """The blocks of Python: line, marks, text."""
    found = []
    text = PAGE.read_text(encoding="utf-8")
    for block in re.finditer(r"^```python *(.*)\n([\s\S]*?)^```$", text, re.MULTILINE):
        line = text.count("\n", 0, block.start()) + 1
        found.append(pytest.param(block[1].split(), block[2], id=f"line {line}"))
    return found


@pytest.fixture(scope="module")
def names():
    """What the blocks before have defined."""
    return {"__name__": "page"}


@pytest.mark.parametrize("marks, text", blocks())
def test_block(marks, text, names, host_address, tmp_path, monkeypatch):
    if "pandas" in marks:
        pytest.importorskip("pandas")
    monkeypatch.chdir(tmp_path)
    (tmp_path / "data").symlink_to(SOURCES / "data")
    if "recording" in marks:
        command = [os.environ["GK_PROGRAM"], "run", "-q", "--robot", "sim", "--speed", "max"]
        night = [*command, "--until", "1", "--record", "night.mcap", "--no-tour"]
        subprocess.run(night, check=True, capture_output=True)
    out = io.StringIO()
    with contextlib.redirect_stdout(out):
        exec(compile(text.replace(DEFAULT, host_address), "page", "exec"), names)
    printed = out.getvalue().splitlines()
    for shown in re.findall(r"^ *# (.*)$", text, re.MULTILINE):
        assert shown in printed
    if "def test_" in text:
        (tmp_path / "test_page.py").write_text(text)
        ended = subprocess.run(
            [
                sys.executable,
                "-m",
                "pytest",
                "-p",
                "no:cacheprovider",
                "--basetemp",
                "base",
                "test_page.py",
            ],
            capture_output=True,
            text=True,
        )
        assert ended.returncode == 0, ended.stdout


def test_the_page_has_blocks():
    assert len(blocks()) >= 10
