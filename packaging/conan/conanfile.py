"""Untested; see ../README.md. Use: conan create packaging/conan"""
import os
import re

from conan import ConanFile
from conan.errors import ConanInvalidConfiguration
from conan.tools.build import check_min_cppstd
from conan.tools.cmake import CMake, CMakeToolchain, cmake_layout
from conan.tools.files import copy, load

PREFIXES = {"pffft_ROOT": "TAVRIN_PFFFT_PREFIX", "onnxruntime_ROOT": "TAVRIN_RUNTIME_PREFIX"}


class TavrinConan(ConanFile):
    name = "tavrin"
    description = "Separates stereo music into its parts with a neural network"
    license = "MIT"
    package_type = "library"
    settings = "os", "compiler", "build_type", "arch"
    options = {"shared": [True, False], "fPIC": [True, False]}
    default_options = {"shared": True, "fPIC": True}
    implements = ["auto_shared_fpic"]
    generators = "CMakeDeps"

    def set_version(self):
        header = load(self, os.path.join(self.recipe_folder, "../../include/tavrin/tavrin_c.h"))
        self.version = ".".join(re.findall(r"#define TAVRIN_VERSION_(?:MAJOR|MINOR|PATCH) (\d+)", header))

    def export_sources(self):
        for pattern in "CMakeLists.txt", "LICENSE", "cmake/*", "docs/man/*", "include/*", "models/*",
                        "packaging/*", "src/*":
            copy(self, pattern, os.path.join(self.recipe_folder, "../.."), self.export_sources_folder)

    def requirements(self):
        self.requires("plog/1.1.10")
        self.requires("xsimd/13.0.0", transitive_headers=True)
        self.requires("xtensor/0.25.0", transitive_headers=True)

    def validate(self):
        if self.settings.os != "Linux":
            raise ConanInvalidConfiguration("only Linux has been tried")
        check_min_cppstd(self, 20)
        for variable in PREFIXES.values():
            if not os.environ.get(variable):
                raise ConanInvalidConfiguration(f"set {variable}; packaging/README.md says to what")

    def layout(self):
        cmake_layout(self)

    def generate(self):
        toolchain = CMakeToolchain(self)
        for name, variable in PREFIXES.items():
            toolchain.cache_variables[name] = os.environ[variable]
        toolchain.cache_variables["TAVRIN_INSTALL_RUNTIME"] = "ON"
        for part in "TOOLS", "EXAMPLES", "TESTS", "PYTHON":
            toolchain.cache_variables[f"TAVRIN_BUILD_{part}"] = False
        toolchain.generate()

    def build(self):
        cmake = CMake(self)
        cmake.configure()
        cmake.build()

    def package(self):
        copy(self, "LICENSE", self.source_folder, os.path.join(self.package_folder, "licenses"))
        CMake(self).install()

    def package_info(self):
        # The package that the build installs is what hosts find.
        self.cpp_info.set_property("cmake_find_mode", "none")
        self.cpp_info.builddirs.append(os.path.join("lib", "cmake", "tavrin"))
        self.cpp_info.libs = ["tavrin_proc"]
