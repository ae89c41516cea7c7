SUMMARY = "Networking interface of an embedded Linux device"
DESCRIPTION = "One programming interface for every application of a network device, with a network \
daemon and a command line."
SECTION = "libs"

# The owner has not chosen a licence yet: CLOSED grants nothing.
LICENSE = "CLOSED"

# What is built is the checkout that this layer lies in.
inherit externalsrc
EXTERNALSRC = "${@os.path.realpath(os.path.join(d.getVar('THISDIR'), '../../../..'))}"
EXTERNALSRC_BUILD = "${WORKDIR}/build"

inherit cmake pkgconfig python3native systemd update-rc.d

DEPENDS = "virtual/crypt"

# The daemon brings nothing without the tools: `tools` alone is the command line.
PACKAGECONFIG ??= "tools daemon"
PACKAGECONFIG[tools] = "-DVIMBRA_TOOLS=ON,-DVIMBRA_TOOLS=OFF,cli11 nlohmann-json"
PACKAGECONFIG[daemon] = "-DVIMBRA_DAEMON=ON,-DVIMBRA_DAEMON=OFF,libnl libuv"
PACKAGECONFIG[manual] = "-DVIMBRA_DOCS=ON,-DVIMBRA_DOCS=OFF"

EXTRA_OECMAKE = "-DVIMBRA_TESTS=OFF -DVIMBRA_BENCH=OFF -DVIMBRA_EXAMPLES=OFF \
                 -DVIMBRA_REQUIRE_ALL=ON -DVIMBRA_WERROR=OFF -DCMAKE_SKIP_INSTALL_RPATH=ON"

do_install:append() {
    if [ -d ${D}${nonarch_libdir}/systemd/system ] &&
        [ ${nonarch_libdir}/systemd/system != ${systemd_system_unitdir} ]; then
        install -d ${D}${systemd_system_unitdir}
        mv ${D}${nonarch_libdir}/systemd/system/* ${D}${systemd_system_unitdir}
        rm -r ${D}${nonarch_libdir}/systemd
    fi
}

PACKAGES =+ "${PN}-daemon ${PN}-tools"

SUMMARY:${PN}-daemon = "Network daemon of Vimbra"
FILES:${PN}-daemon = "${sbindir}/vimbrad ${sysconfdir}/init.d/vimbrad \
                      ${systemd_system_unitdir}/vimbrad.service"
RSUGGESTS:${PN}-daemon = "chrony dhcp-client ppp"

SUMMARY:${PN}-tools = "Command line of Vimbra"
FILES:${PN}-tools = "${bindir}/vimbractl ${datadir}/bash-completion ${datadir}/zsh ${datadir}/fish"

SYSTEMD_PACKAGES = "${@bb.utils.contains('PACKAGECONFIG', 'daemon', '${PN}-daemon', '', d)}"
SYSTEMD_SERVICE:${PN}-daemon = "vimbrad.service"
INITSCRIPT_PACKAGES = "${SYSTEMD_PACKAGES}"
INITSCRIPT_NAME:${PN}-daemon = "vimbrad"
INITSCRIPT_PARAMS:${PN}-daemon = "defaults 20"
