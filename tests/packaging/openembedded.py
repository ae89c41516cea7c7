#!/usr/bin/env python3
"""The OpenEmbedded recipe against the project: version, options, and who gets which file.

BitBake's syntax is read as far as the recipe uses it.
"""
import fnmatch
import glob
import os
import re
import subprocess
import tempfile

import tree

SYSTEM = {
    "PN": "vimbra", "WORKDIR": "/work", "bindir": "/usr/bin", "sbindir": "/usr/sbin",
    "libdir": "/usr/lib", "datadir": "/usr/share", "sysconfdir": "/etc",
    "nonarch_libdir": "/usr/lib", "systemd_system_unitdir": "/usr/lib/systemd/system",
}
# What every recipe's packages take by themselves.
USUAL = {
    "vimbra": ["/usr/lib/libvimbra.so.*"],
    "vimbra-dev": ["/usr/include/*", "/usr/lib/libvimbra.so", "/usr/lib/pkgconfig/*",
                   "/usr/lib/cmake/*"],
    "vimbra-doc": ["/usr/share/doc/*", "/usr/share/man/*"],
}


class Utils:
    """Stands for bb.utils."""

    utils = None

    @staticmethod
    def contains(name, wanted, yes, no, recipe):
        return yes if set(wanted.split()) <= set((recipe.getVar(name) or "").split()) else no


Utils.utils = Utils


class Recipe:
    """A recipe's variables, expanded, and its functions."""

    def __init__(self, path, system):
        self.values, self.flags, self.functions, self.classes = dict(system), {}, {}, []
        self.values["THISDIR"] = os.path.dirname(path)
        with open(path, encoding="utf-8") as file:
            text = file.read()
        text = re.sub(r"^#.*\n", "", text, flags=re.M)
        for name, body in re.findall(r"^([\w:]+)\(\) \{\n(.*?)^\}\n", text, flags=re.M | re.S):
            self.functions[name] = body
        text = re.sub(r"^[\w:]+\(\) \{\n.*?^\}\n", "", text, flags=re.M | re.S)
        for line in text.replace("\\\n", " ").splitlines():
            self.take(line.strip())

    def take(self, line):
        if not line:
            return
        if line.startswith("inherit "):
            self.classes += line.split()[1:]
            return
        found = re.fullmatch(r'([\w:${}-]+)(\[\w+\])? (\?\?=|\?=|=|=\+) "(.*)"', line)
        assert found, f"not read: {line}"
        name, flag, how, value = found.groups()
        name = name.replace("${PN}", "vimbra")
        if flag:
            self.flags[name, flag[1:-1]] = value
        elif how == "=+":
            self.values[name] = value + " " + self.values.get(name, "")
        elif how == "=" or name not in self.values:
            self.values[name] = value

    def expand(self, text):
        text = re.sub(r"\$\{(\w+)\}", lambda each: self.getVar(each[1]), text)
        return re.sub(r"\$\{@(.*?)\}(?=$|[\s/])",
                      lambda each: str(eval(each[1], {"os": os, "d": self, "bb": Utils})), text)

    def getVar(self, name):
        assert name in self.values, f"{name} is not known"
        return self.expand(self.values[name])

    def options(self):
        chosen = self.getVar("PACKAGECONFIG").split()
        options = self.getVar("EXTRA_OECMAKE").split()
        for (name, flag), value in self.flags.items():
            if name == "PACKAGECONFIG":
                on, off, *_ = value.split(",")
                options.append(on if flag in chosen else off)
        return options

    def packages(self):
        """Each file's package is the first whose patterns have it."""
        names = self.getVar("PACKAGES").split()
        return {name: self.getVar(f"FILES:{name}").split() for name in names} | USUAL


def split(recipe, files):
    """Package by file; every file has one."""
    packages = recipe.packages()
    owners = {}
    for path in files:
        for name, patterns in packages.items():
            if any(fnmatch.fnmatch(path, pattern) or path.startswith(pattern + "/")
                   for pattern in patterns):
                owners[path] = name
                break
        assert path in owners, f"no package has {path}"
    return owners


def check(path, chosen, daemon, tools):
    recipe = Recipe(path, SYSTEM | {"PACKAGES": "", "PACKAGECONFIG": chosen})
    files = tree.configured(recipe.options() + ["-DCMAKE_INSTALL_SYSCONFDIR=/etc"])
    owners = split(recipe, files)
    got = {name: {path for path, owner in owners.items() if owner == name}
           for name in recipe.packages()}
    assert got["vimbra-daemon"] == ({"/usr/sbin/vimbrad", "/etc/init.d/vimbrad",
                                     "/usr/lib/systemd/system/vimbrad.service"} if daemon else set())
    assert ("/usr/bin/vimbractl" in got["vimbra-tools"]) == tools, got
    assert len(got["vimbra-tools"]) == (4 if tools else 0), got
    assert {os.path.basename(each) for each in got["vimbra"]} >= {f"libvimbra.so.{tree.version()}"}
    assert "/usr/include/vimbra/" in got["vimbra-dev"], got
    for each in ("SYSTEMD_PACKAGES", "INITSCRIPT_PACKAGES"):
        assert recipe.getVar(each) == ("vimbra-daemon" if daemon else ""), each


def check_unit(path):
    """Where /lib is none of /usr's the unit goes where systemd looks."""
    with tempfile.TemporaryDirectory() as root:
        recipe = Recipe(path, SYSTEM | {"PACKAGES": "", "D": root,
                                        "systemd_system_unitdir": "/lib/systemd/system"})
        for place in (recipe.getVar("systemd_system_unitdir"), "/usr/lib/systemd/system"):
            recipe.values["systemd_system_unitdir"] = place
            os.makedirs(f"{root}/usr/lib/systemd/system")
            with open(f"{root}/usr/lib/systemd/system/vimbrad.service", "w", encoding="utf-8"):
                pass
            subprocess.run(["sh", "-ec", recipe.expand(recipe.functions["do_install:append"])],
                           check=True)
            left = glob.glob(f"{root}/**/vimbrad.service", recursive=True)
            assert left == [f"{root}{place}/vimbrad.service"], left
            subprocess.run(["rm", "-r", f"{root}/{place.split('/')[1]}"], check=True)


def main():
    paths = glob.glob(f"{tree.SOURCE}/packaging/openembedded/recipes-*/*/*.bb")
    assert [os.path.basename(path) for path in paths] == [f"vimbra_{tree.version()}.bb"], paths
    path = paths[0]
    recipe = Recipe(path, SYSTEM | {"PACKAGES": ""})
    assert recipe.getVar("EXTERNALSRC") == os.path.realpath(tree.SOURCE)
    assert {"cmake", "pkgconfig", "systemd", "update-rc.d"} <= set(recipe.classes)
    assert recipe.getVar("LICENSE") == "CLOSED"
    assert recipe.getVar("PACKAGECONFIG") == "tools daemon"
    check(path, "tools daemon", daemon=True, tools=True)
    check(path, "tools daemon manual", daemon=True, tools=True)
    check(path, "tools", daemon=False, tools=True)
    check(path, "", daemon=False, tools=False)
    check_unit(path)


main()
