"""Builds vexa._vexa against a build of the library: $VEXA_BUILD, that of this checkout, or the installed library."""
import os
import pathlib
import subprocess

from pybind11.setup_helpers import Pybind11Extension
from setuptools import setup

own_build = pathlib.Path(__file__).resolve().parents[2] / "build"
build = pathlib.Path(os.environ.get("VEXA_BUILD", own_build))


def pkg_config(what):
    return subprocess.run(["pkg-config", what, "vexaconfig"], check=True, capture_output=True, text=True).stdout.split()


if (build / "lib/libvexaconfig.so").exists():
    header = (build / "generated/config/version.h").read_text()
    version = ".".join(header.split(f"VERSION_{part} ")[1].split()[0] for part in ("MAJOR", "MINOR", "PATCH"))
    flags = {"include_dirs": [str(build.parent / "classes"), str(build / "generated")],
             "library_dirs": [str(build / "lib")], "libraries": ["vexaconfig"]}
    if build == own_build:  # for use from the checkout; who names a build installs the library, too
        flags["runtime_library_dirs"] = [str(build / "lib")]
else:
    version = pkg_config("--modversion")[0]
    flags = {"extra_compile_args": pkg_config("--cflags"), "extra_link_args": pkg_config("--libs")}

setup(version=version,
      ext_modules=[Pybind11Extension("vexa._vexa", ["src/module.cpp", "src/parameter.cpp", "src/unlocked.cpp", "src/values.cpp"],
                                     cxx_std=20, depends=["src/parameter.h", "src/unlocked.h", "src/values.h"], **flags)])
