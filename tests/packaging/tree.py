"""What the project would build and install with some options, without building it."""
import os
import re
import subprocess
import tempfile

SOURCE = os.environ["SOURCE"]
# Both build for another system, whatever its processor.
SYSTEM = ["-DCMAKE_INSTALL_PREFIX=/usr", "-DCMAKE_INSTALL_LIBDIR=lib", "-DCMAKE_SYSTEM_NAME=Linux",
          "-DCMAKE_BUILD_TYPE=Release", "-G", "Ninja"]


def version():
    """The project's version, from where it stands."""
    with open(f"{SOURCE}/include/vimbra/version.h", encoding="utf-8") as file:
        return ".".join(re.findall(r"VERSION_(?:MAJOR|MINOR|PATCH) (\d+)", file.read()))


def configured(options):
    """The paths that a configured tree installs, directories with a slash at their end."""
    with tempfile.TemporaryDirectory() as tree:
        done = subprocess.run(["cmake", "-S", SOURCE, "-B", tree, *SYSTEM, *options], check=False,
                              stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True)
        assert done.returncode == 0, done.stdout
        assert "not used by the project" not in done.stdout, done.stdout
        assert "Left out" not in done.stdout, done.stdout
        return set(_installed(tree))


def _installed(tree):
    for folder, _, names in os.walk(tree):
        if "cmake_install.cmake" not in names:
            continue
        with open(f"{folder}/cmake_install.cmake", encoding="utf-8") as file:
            text = file.read()
        for place, kind, rename, files in re.findall(
                r'file\(INSTALL DESTINATION "([^"]*)" TYPE (\w+)[^")]*?(?:RENAME "([^"]*)" )?'
                r'FILES\s+([^)]*)\)', text):
            place = place.replace("${CMAKE_INSTALL_PREFIX}", "/usr")
            for path in re.findall(r'"([^"]*)"', files.split("FILES_MATCHING")[0]):
                if kind == "DIRECTORY":
                    yield f"{place}/{os.path.basename(path)}/"
                else:
                    yield f"{place}/{rename or os.path.basename(path)}"
