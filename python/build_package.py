"""Makes the wheel for `pip install ./python`: what PEP 517 and PEP 660 ask of a backend.

A pure package without generated files needs no more than a zip archive of itself. That keeps the
installation free of downloads, and the folder free of what builds leave behind.
"""

import base64
import hashlib
import os
import re
import sys
import zipfile
from pathlib import Path

HERE = Path(__file__).resolve().parent
NAME = "gksensors"

WHEEL = """Wheel-Version: 1.0
Generator: gksensors
Root-Is-Purelib: true
Tag: py3-none-any
"""
ENTRY_POINTS = """[pytest11]
gksensors = gksensors.pytest_plugin
"""


def version():
    """The one version number."""
    text = (HERE.parent / "CMakeLists.txt").read_text()
    return re.search(r"project\(gksensors VERSION ([\d.]+)", text)[1]


def metadata():
    return f"""Metadata-Version: 2.1
Name: {NAME}
Version: {version()}
Summary: Facts and events of a small humanoid robot
License: Apache-2.0
Requires-Python: >=3.9
Requires-Dist: numpy
Provides-Extra: all
Requires-Dist: matplotlib ; extra == "all"
Requires-Dist: pandas ; extra == "all"
"""


def info_files():
    return {"METADATA": metadata(), "WHEEL": WHEEL, "entry_points.txt": ENTRY_POINTS}


def write_info(folder):
    """Writes the folder by which Python knows that the package is there; returns its name."""
    name = f"{NAME}-{version()}.dist-info"
    path = Path(folder) / name
    path.mkdir(parents=True, exist_ok=True)
    for file, text in info_files().items():
        (path / file).write_text(text)
    return name


def _wheel(folder, files):
    """`files`: the content by the names in the package."""
    info = f"{NAME}-{version()}.dist-info"
    files = dict(files)
    for file, text in info_files().items():
        files[f"{info}/{file}"] = text.encode()
    record = ""
    for name, content in files.items():
        digest = base64.urlsafe_b64encode(hashlib.sha256(content).digest()).rstrip(b"=").decode()
        record += f"{name},sha256={digest},{len(content)}\n"
    files[f"{info}/RECORD"] = (record + f"{info}/RECORD,,\n").encode()
    name = f"{NAME}-{version()}-py3-none-any.whl"
    with zipfile.ZipFile(os.path.join(folder, name), "w", zipfile.ZIP_DEFLATED) as wheel:
        for file, content in files.items():
            # The same content gives the same bytes.
            entry = zipfile.ZipInfo(file, (2026, 1, 1, 0, 0, 0))
            entry.external_attr = 0o644 << 16
            entry.compress_type = zipfile.ZIP_DEFLATED
            wheel.writestr(entry, content)
    return name


def build_wheel(wheel_directory, config_settings=None, metadata_directory=None):
    package = HERE / NAME
    names = sorted(path for path in package.iterdir() if path.suffix in (".py", ".typed"))
    files = {f"{NAME}/{path.name}": path.read_bytes() for path in names}
    files[f"{NAME}/py.typed"] = b""
    return _wheel(wheel_directory, files)


def build_editable(wheel_directory, config_settings=None, metadata_directory=None):
    return _wheel(wheel_directory, {f"{NAME}.pth": f"{HERE}\n".encode()})


if __name__ == "__main__":
    # For a folder on the path of Python that has no package installed, such as that of a build.
    write_info(sys.argv[1])
