"""The pip build: CMake builds the library and the extension module (its sources and flags are
defined there, once), then the extension and the shared library it loads ($ORIGIN) are copied
into the package. The version is the CMake project's."""
import os
import re
import shutil
import subprocess
import sys

from setuptools import Extension, setup
from setuptools.command.build_ext import build_ext

ROOT = os.path.dirname(os.path.abspath(__file__))


def project_version():
    text = open(os.path.join(ROOT, "CMakeLists.txt"), encoding="utf-8").read()
    return re.search(r"project\(muskeip VERSION ([0-9.]+)", text).group(1)


class CMakeExtension(Extension):
    def __init__(self, name):
        super().__init__(name, sources=[])


class CMakeBuild(build_ext):
    def build_extension(self, ext):
        build_dir = os.path.abspath(os.path.join(self.build_temp, "cmake"))
        os.makedirs(build_dir, exist_ok=True)
        configure = ["cmake", "-S", ROOT, "-B", build_dir, "-DCMAKE_BUILD_TYPE=Release",
                     "-DMUSKEIP_PYTHON_PACKAGE=ON", "-DMUSKEIP_BUILD_TESTS=OFF",
                     "-DMUSKEIP_PYTHON=" + sys.executable]
        try:  # pybind11 from the build environment (PyPI); Debian's is found by CMake itself
            import pybind11

            configure.append("-Dpybind11_DIR=" + pybind11.get_cmake_dir())
        except ImportError:
            pass
        subprocess.run(configure, check=True)
        jobs = os.environ.get("CMAKE_BUILD_PARALLEL_LEVEL", str(os.cpu_count() or 2))
        subprocess.run(["cmake", "--build", build_dir, "--target", "muskeip_python", "-j", jobs],
                       check=True)
        target = os.path.dirname(os.path.abspath(self.get_ext_fullpath(ext.name)))
        os.makedirs(target, exist_ok=True)
        module_dir = os.path.join(build_dir, "python", "module", "muskeip")
        for name in os.listdir(module_dir):
            if name.startswith("_muskeip") and name.endswith(".so"):
                shutil.copy2(os.path.join(module_dir, name), self.get_ext_fullpath(ext.name))
        library_dir = os.path.join(build_dir, "flic")
        for name in os.listdir(library_dir):
            if re.fullmatch(r"libmuskeip\.so\.\d+", name):  # the soname the extension loads
                shutil.copy2(os.path.join(library_dir, name), os.path.join(target, name))


# setuptools' own build folder stays apart from the CMake build folders (build, build-*).
setup(version=project_version(), ext_modules=[CMakeExtension("muskeip._muskeip")],
      cmdclass={"build_ext": CMakeBuild}, zip_safe=False,
      options={"build": {"build_base": "build-python"}})
