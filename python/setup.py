"""Builds the extension with the library's own CMake build, from the source tree above.

The extension links liborvane.so, which is shipped inside the package and found through
the extension's run path ($ORIGIN). Needs cmake, ninja, g++, pybind11 and the Python headers
(Debian: scripts/install-deps.sh); pip install --no-build-isolation uses them as installed.
"""

import os
import pathlib
import shutil
import subprocess
import sys

from setuptools import Extension, setup
from setuptools.command.build_ext import build_ext

SOURCE = pathlib.Path(__file__).resolve().parent.parent


class CMakeBuild(build_ext):
    def build_extension(self, ext):
        build = pathlib.Path(self.build_temp).resolve() / "cmake"
        configure = [
            "cmake", "-S", str(SOURCE), "-B", str(build), "-G", "Ninja",
            "-DCMAKE_BUILD_TYPE=RelWithDebInfo", "-DCMAKE_CXX_COMPILER=g++",
            "-DORVANE_BUILD_TESTS=OFF", "-DORVANE_BUILD_TOOLS=OFF",
            "-DORVANE_BUILD_PYTHON=ON", "-DORVANE_PYTHON_BUNDLE=ON",
            f"-DPython3_EXECUTABLE={sys.executable}",
        ]
        if shutil.which("ccache"):
            configure.append("-DCMAKE_CXX_COMPILER_LAUNCHER=ccache")
        subprocess.run(configure, check=True)
        subprocess.run(["cmake", "--build", str(build), "--target", "orvane_python",
                        "-j", str(os.cpu_count() or 1)], check=True)
        # The extension and the library it runs on, side by side.
        target = pathlib.Path(self.get_ext_fullpath(ext.name)).parent
        target.mkdir(parents=True, exist_ok=True)
        for built in (build / "python" / "orvane").glob("*.so*"):
            shutil.copy2(built, target / built.name)


setup(ext_modules=[Extension("orvane._orvane", sources=[])], cmdclass={"build_ext": CMakeBuild})
