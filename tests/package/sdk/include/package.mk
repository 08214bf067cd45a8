PKG_BUILD_DIR:=$(BUILD_DIR)/$(PKG_NAME)-$(PKG_VERSION)
PKG_INSTALL_DIR:=$(PKG_BUILD_DIR)/ipkg-install

$(BUILD_DIR)/.built:
	rm -rf $(PKG_BUILD_DIR)
	$(call Build/Prepare)
	$(call Build/Configure)
	$(call Build/Compile)
	$(call Build/Install)
	touch $@

fields=SECTION CATEGORY SUBMENU TITLE DEPENDS CONFLICTS PROVIDES PKGARCH ALTERNATIVES

# Fields are set as the package's definition is read, and must not reach the next package.
define BuildPackage
$(foreach name,$(fields),$(eval $(name):=))
$(eval $(Package/$(1)))
$(foreach name,TITLE SECTION CATEGORY,$(if $($(name)),,$(error $(1) has no $(name))))
$(if $(Package/$(1)/description),,$(error $(1) has no description))
$(if $(Package/$(1)/install),,$(error $(1) installs nothing))
$(foreach name,$(fields),$(eval control-$(1)+=$(if $($(name)),'$(name): $(strip $($(name)))')))

all: lay-$(1)
.PHONY: lay-$(1)
lay-$(1): $(BUILD_DIR)/.built
	rm -rf $(OUT)/$(1)
	mkdir -p $(OUT)/$(1)/data
	printf '%s\n' 'NAME: $(1)' 'VERSION: $(PKG_VERSION)-r$(PKG_RELEASE)' $$(control-$(1)) >$(OUT)/$(1)/control
	printf '%s\n' $$(strip $$(Package/$(1)/conffiles)) >$(OUT)/$(1)/conffiles
	$(if $(Package/$(1)/postinst),$$(shell mkdir -p $(OUT))$$(file >$(OUT)/$(1).postinst,$$(Package/$(1)/postinst))mv $(OUT)/$(1).postinst $(OUT)/$(1)/postinst)
	$(call Package/$(1)/install,$(OUT)/$(1)/data)
endef
