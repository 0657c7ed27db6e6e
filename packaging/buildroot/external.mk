include $(sort $(wildcard $(BR2_EXTERNAL_TRAFFIC_USAGE_DETAILS_PATH)/package/*/*.mk))
