"""Builds the extension and the two libraries with CMake, for a wheel that holds all of them.

TESSEL_PREFIX names an installation to take them from instead.
"""

import os
import re
import shutil
import subprocess
import sys
from pathlib import Path

from setuptools import Extension, setup
from setuptools.command.build_ext import build_ext

ROOT = Path(__file__).resolve().parent
BINARIES = ("_core*.so", "libtessel.so.1", "libtessel-modes.so.1")


class Build(build_ext):
    """Runs CMake and puts what it built beside the sources of the package."""

    def build_extension(self, extension):
        built = os.environ.get("TESSEL_PREFIX") or self.run_cmake()
        target = Path(self.get_ext_fullpath(extension.name)).parent
        target.mkdir(parents=True, exist_ok=True)
        for pattern in BINARIES:
            (found,) = Path(built).rglob(pattern)
            shutil.copyfile(found, target / found.name)

    def run_cmake(self):
        options = {
            "CMAKE_BUILD_TYPE": "Release",
            "CMAKE_BUILD_WITH_INSTALL_RPATH": "ON",
            "CMAKE_MODULE_LINKER_FLAGS": "-s",
            "CMAKE_SHARED_LINKER_FLAGS": "-s",
            "Python_EXECUTABLE": sys.executable,
            "TESSEL_BUILD_COMMAND": "OFF",
            "TESSEL_BUILD_EXAMPLES": "OFF",
            "TESSEL_BUILD_PYTHON": "ON",
            "TESSEL_BUILD_TESTS": "OFF",
        }
        folder = Path(self.build_temp).resolve() / "cmake"
        flags = [f"-D{name}={value}" for name, value in options.items()]
        subprocess.run(["cmake", "-S", ROOT, "-B", folder, *flags], check=True)
        jobs = str(self.parallel or os.cpu_count() or 1)
        subprocess.run(["cmake", "--build", folder, "--target", "tessel_python", "-j", jobs], check=True)
        return folder


setup(
    version=re.search(r"project\(Tessel VERSION ([0-9.]+)", (ROOT / "CMakeLists.txt").read_text())[1],
    ext_modules=[Extension("tessel._core", [])],
    cmdclass={"build_ext": Build},
)
