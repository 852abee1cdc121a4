"""One wheel for all Pythons of a platform: the library is called by ctypes, nothing is compiled for
one Python."""

import platform

from setuptools import Distribution, setup
from wheel.bdist_wheel import bdist_wheel


class WithLibrary(Distribution):
    def has_ext_modules(self):
        return True  # not for any platform


class ForAllPythons(bdist_wheel):
    def get_tag(self):
        name, version = platform.libc_ver()
        if (
            name == "glibc"
        ):  # that of the machine that built the library, the oldest on which it runs
            return "py3", "none", f"manylinux_{version.replace('.', '_')}_{platform.machine()}"
        return ("py3", "none", super().get_tag()[2])


setup(distclass=WithLibrary, cmdclass={"bdist_wheel": ForAllPythons})
