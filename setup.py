"""pip install . : the Python package, built by CMake.

CMake builds the extension `_core` with what it loads, the host runtime
(libnumora.so) and the module (libarbolin.so), in build-pip/; the three
libraries go into the package folder, where each finds the others
($ORIGIN). Nothing is downloaded: the build uses the setuptools, CMake,
compiler and Debian packages of the machine (scripts/install-deps.sh).
"""

import os
import re
import shutil
import subprocess
import sys

from setuptools import Extension, setup
from setuptools.command.build_ext import build_ext

ROOT = os.path.dirname(os.path.abspath(__file__))


def version():
    with open(os.path.join(ROOT, "CMakeLists.txt"), encoding="utf-8") as f:
        return re.search(r"project\(arbolin VERSION ([0-9.]+)", f.read()).group(1)


class CMakeExtension(Extension):
    def __init__(self, name):
        super().__init__(name, sources=[])


class CMakeBuild(build_ext):
    def build_extension(self, ext):
        target = os.path.abspath(self.get_ext_fullpath(ext.name))
        package = os.path.dirname(target)
        build = os.path.join(ROOT, "build-pip")
        subprocess.run(["cmake", "-S", ROOT, "-B", build, f"-DPython_EXECUTABLE={sys.executable}",
                        "-DCMAKE_BUILD_WITH_INSTALL_RPATH=ON", "-DCMAKE_INSTALL_RPATH=$ORIGIN"],
                       check=True)
        jobs = os.environ.get("CMAKE_BUILD_PARALLEL_LEVEL", str(os.cpu_count() or 1))
        subprocess.run(["cmake", "--build", build, "--target", "_core", "-j", jobs], check=True)
        built = os.path.join(build, "python", "arbolin")
        os.makedirs(package, exist_ok=True)
        extension = next(f for f in os.listdir(built) if f.startswith("_core."))
        shutil.copyfile(os.path.join(built, extension), target)
        shutil.copyfile(os.path.join(built, "libarbolin.so"), os.path.join(package, "libarbolin.so"))
        shutil.copyfile(os.path.join(build, "host", "libnumora.so"),
                        os.path.join(package, "libnumora.so"))


setup(
    name="arbolin",
    version=version(),
    description="Binary decision trees: the arbolin module with scikit-learn estimators",
    packages=["arbolin"],
    package_dir={"arbolin": "python/arbolin"},
    ext_modules=[CMakeExtension("arbolin._core")],
    cmdclass={"build_ext": CMakeBuild},
    options={"build": {"build_base": "build-pip/setuptools"}},
    install_requires=["numpy"],
    python_requires=">=3.9",
    zip_safe=False,
)
