include $(sort $(wildcard $(BR2_EXTERNAL_VIMBRA_PATH)/package/*/*.mk))
