################################################################################
#
# traffic-usage-details
#
################################################################################

TRAFFIC_USAGE_DETAILS_VERSION = 1.0.0
TRAFFIC_USAGE_DETAILS_SITE = $(BR2_EXTERNAL_TRAFFIC_USAGE_DETAILS_PATH)/../..
TRAFFIC_USAGE_DETAILS_SITE_METHOD = local
TRAFFIC_USAGE_DETAILS_LICENSE = MIT
TRAFFIC_USAGE_DETAILS_LICENSE_FILES = LICENSE
TRAFFIC_USAGE_DETAILS_INSTALL_STAGING = YES
TRAFFIC_USAGE_DETAILS_DEPENDENCIES = \
	host-pkgconf \
	cjson \
	$(call qstrip,$(BR2_PACKAGE_TRAFFIC_USAGE_DETAILS_PLATFORM))
TRAFFIC_USAGE_DETAILS_CONF_OPTS = \
	-DBUILD_TESTING=OFF \
	-DWORKSTATION=OFF \
	-DINIT_SCRIPT_DIR=

# The local folder may hold builds of its own.
TRAFFIC_USAGE_DETAILS_OVERRIDE_SRCDIR_RSYNC_EXCLUSIONS = --exclude build

define TRAFFIC_USAGE_DETAILS_INSTALL_INIT_SYSV
	$(INSTALL) -D -m 0755 $(@D)/packaging/init.d/trafficUsageDetailsD \
		$(TARGET_DIR)/etc/init.d/S80trafficUsageDetailsD
endef

$(eval $(cmake-package))
