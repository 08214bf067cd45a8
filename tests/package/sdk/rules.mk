# What the package files need of an image builder's SDK, made small: enough to build with the host's compiler and to
# lay each package into a folder with its control file. Called with TOPDIR (this folder), BUILD_DIR, STAGING_DIR
# (bus libraries with headers) and OUT.
INCLUDE_DIR:=$(TOPDIR)/include
INSTALL_DIR:=install -d -m0755
INSTALL_BIN:=install -m0755
INSTALL_DATA:=install -m0644
INSTALL_CONF:=install -m0600
CP:=cp -fpR
all:
.PHONY: all
