################################################################################
#
# traffic-usage-gateway
#
################################################################################

TRAFFIC_USAGE_GATEWAY_VERSION = 1.0.0
TRAFFIC_USAGE_GATEWAY_SITE = $(BR2_EXTERNAL_TRAFFIC_USAGE_DETAILS_PATH)/../..
TRAFFIC_USAGE_GATEWAY_SITE_METHOD = local
TRAFFIC_USAGE_GATEWAY_LICENSE = MIT
TRAFFIC_USAGE_GATEWAY_LICENSE_FILES = LICENSE
TRAFFIC_USAGE_GATEWAY_DEPENDENCIES = host-pkgconf cjson libpcap lmdb ndpi
TRAFFIC_USAGE_GATEWAY_CONF_OPTS = \
	-DBUILD_TESTING=OFF \
	-DWORKSTATION=ON \
	-DIDPFWD_WITH_NDPI=ON \
	-DSYSTEMD_UNIT_DIR= \
	-DINIT_SCRIPT_DIR=/etc/init.d

# The local folder may hold builds of its own.
TRAFFIC_USAGE_GATEWAY_OVERRIDE_SRCDIR_RSYNC_EXCLUSIONS = --exclude build

# In the order of their numbers: the daemon asks the engine.
define TRAFFIC_USAGE_GATEWAY_INSTALL_INIT_SYSV
	mv $(TARGET_DIR)/etc/init.d/idpfwd $(TARGET_DIR)/etc/init.d/S79idpfwd
	mv $(TARGET_DIR)/etc/init.d/trafficUsageDetailsD \
		$(TARGET_DIR)/etc/init.d/S80trafficUsageDetailsD
endef

$(eval $(cmake-package))
