#!/usr/bin/python3
"""The Buildroot package against the project: choices by Kconfig, options and files by GNU make.

Of Buildroot's own there are stand-ins: symbols that others define, and a cmake-package that tells what
it was given.
"""
import os
import re
import subprocess
import tempfile

import kconfiglib
import tree

PACKAGING = f"{tree.SOURCE}/packaging/buildroot"
TOOLCHAIN = ["BR2_USE_MMU", "BR2_INSTALL_LIBSTDCPP", "BR2_TOOLCHAIN_HAS_THREADS",
             "BR2_TOOLCHAIN_HAS_THREADS_NPTL", "BR2_TOOLCHAIN_GCC_AT_LEAST_12",
             "BR2_TOOLCHAIN_USES_GLIBC"]
OTHERS = ["BR2_STATIC_LIBS", "BR2_PACKAGE_LIBXCRYPT", "BR2_PACKAGE_CLI11",
          "BR2_PACKAGE_JSON_FOR_MODERN_CPP", "BR2_PACKAGE_LIBNL", "BR2_PACKAGE_LIBUV"]
TOLD = ["VERSION", "SITE", "SITE_METHOD", "DEPENDENCIES", "CONF_OPTS", "INSTALL_INIT_SYSV",
        "INSTALL_STAGING"]


def chosen(work, choices, missing=()):
    """Configures; returns the file that make reads, and what is on."""
    top = f"{work}/Kconfig"
    with open(top, "w", encoding="utf-8") as file:
        for name in TOOLCHAIN:
            file.write(f"config {name}\n\tbool\n\tdefault {'n' if name in missing else 'y'}\n")
        for name in OTHERS:
            file.write(f'config {name}\n\tbool "other"\n')
        file.write(f'source "{PACKAGING}/Config.in"\n')
    os.environ |= {"KCONFIG_WARN_UNDEF": "y", "BR2_EXTERNAL_VIMBRA_PATH": PACKAGING, "CONFIG_": ""}
    config = kconfiglib.Kconfig(top, warn_to_stderr=False)
    for name in choices:
        config.syms["BR2_PACKAGE_" + name].set_value("y")
    config.write_config(f"{work}/.config")
    assert not config.warnings, config.warnings
    return {name.removeprefix("BR2_PACKAGE_") for name, symbol in config.syms.items()
            if name.startswith("BR2_PACKAGE_") and symbol.str_value == "y"}


def made(work):
    """What vimbra.mk hands to cmake-package."""
    makefile = f"{work}/Makefile"
    with open(makefile, "w", encoding="utf-8") as file:
        file.write("include .config\n")
        for name in TOLD:
            file.write(f"tell += $(info {name}=$(VIMBRA_{name}))\n")
        file.write(f"cmake-package = $(tell)\nBR2_EXTERNAL_VIMBRA_PATH = {PACKAGING}\n"
                   "TARGET_DIR = $(CURDIR)/target\n"
                   f"include {PACKAGING}/external.mk\nall:\n\t@$(VIMBRA_INSTALL_INIT_SYSV)\n")
    os.makedirs(f"{work}/target/etc/init.d", exist_ok=True)
    done = subprocess.run(["make", "--warn-undefined-variables", "-C", work,
                           "--no-print-directory"], check=True, stdout=subprocess.PIPE,
                          stderr=subprocess.PIPE, text=True)
    unknown = re.findall(r"undefined variable '(?!BR2_)(.*)'", done.stderr)
    assert set(unknown) <= {"VIMBRA_INSTALL_INIT_SYSV", "MAKECMDGOALS"}, unknown
    return dict(re.findall(r"^(\w+)= *(.*)$", done.stdout, flags=re.M))


def check(choices, on, daemon, tools):
    with tempfile.TemporaryDirectory() as work:
        packages = chosen(work, choices)
        assert packages == on, packages
        told = made(work)
        assert told["VERSION"] == tree.version(), told
        assert told["SITE"] == os.path.realpath(tree.SOURCE) and told["SITE_METHOD"] == "local"
        assert told["INSTALL_STAGING"] == "YES", told
        # What is selected is waited for.
        assert {each.lower().replace("_", "-") for each in packages if "VIMBRA" not in each} <= \
            set(told["DEPENDENCIES"].split()), told
        files = tree.configured(told["CONF_OPTS"].split())
        assert ("/usr/sbin/vimbrad" in files) == ("/etc/init.d/vimbrad" in files) == daemon, files
        assert ("/usr/bin/vimbractl" in files) == tools, files
        script = f"{work}/target/etc/init.d/S39vimbrad"
        assert os.path.islink(script) == daemon
        assert not daemon or os.readlink(script) == "vimbrad"


def main():
    library = {"VIMBRA", "LIBXCRYPT"}
    check(["VIMBRA"], library, daemon=False, tools=False)
    tools = library | {"VIMBRA_TOOLS", "CLI11", "JSON_FOR_MODERN_CPP"}
    check(["VIMBRA", "VIMBRA_TOOLS"], tools, daemon=False, tools=True)
    daemon = tools | {"VIMBRA_DAEMON", "LIBNL", "LIBUV"}
    check(["VIMBRA", "VIMBRA_DAEMON"], daemon, daemon=True, tools=True)
    with tempfile.TemporaryDirectory() as work:
        assert chosen(work, ["VIMBRA"], missing=["BR2_TOOLCHAIN_GCC_AT_LEAST_12"]) == set()


main()
