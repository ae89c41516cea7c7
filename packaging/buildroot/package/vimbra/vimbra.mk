################################################################################
#
# vimbra
#
################################################################################

VIMBRA_VERSION = 2.0.3
# What is built is the checkout that this package lies in: there is nothing to download, and no
# archive whose hash vimbra.hash could hold.
VIMBRA_SITE = $(realpath $(BR2_EXTERNAL_VIMBRA_PATH)/../..)
VIMBRA_SITE_METHOD = local
VIMBRA_OVERRIDE_SRCDIR_RSYNC_EXCLUSIONS = --exclude /build
# The owner has not chosen a licence yet: nothing is granted, nothing may be passed on.
VIMBRA_LICENSE = not chosen
VIMBRA_REDISTRIBUTE = NO
VIMBRA_INSTALL_STAGING = YES

VIMBRA_DEPENDENCIES = $(if $(BR2_PACKAGE_LIBXCRYPT),libxcrypt)
VIMBRA_CONF_OPTS = \
	-DVIMBRA_TESTS=OFF \
	-DVIMBRA_BENCH=OFF \
	-DVIMBRA_EXAMPLES=OFF \
	-DVIMBRA_DOCS=OFF \
	-DVIMBRA_REQUIRE_ALL=ON \
	-DVIMBRA_WERROR=OFF \
	-DCMAKE_INSTALL_SYSCONFDIR=/etc

ifeq ($(BR2_PACKAGE_VIMBRA_TOOLS),y)
VIMBRA_DEPENDENCIES += cli11 host-python3 json-for-modern-cpp
VIMBRA_CONF_OPTS += -DVIMBRA_TOOLS=ON
else
VIMBRA_CONF_OPTS += -DVIMBRA_TOOLS=OFF
endif

ifeq ($(BR2_PACKAGE_VIMBRA_DAEMON),y)
VIMBRA_DEPENDENCIES += host-pkgconf libnl libuv
VIMBRA_CONF_OPTS += -DVIMBRA_DAEMON=ON

# Before whatever brings up interfaces of its own. The script is the installed one, under the name
# by which it is started.
define VIMBRA_INSTALL_INIT_SYSV
	ln -sf vimbrad $(TARGET_DIR)/etc/init.d/S39vimbrad
endef
else
VIMBRA_CONF_OPTS += -DVIMBRA_DAEMON=OFF
endif

$(eval $(cmake-package))
