# SPDX-License-Identifier: Apache-2.0
################################################################################
#
# bbpflash
#
################################################################################

BBPFLASH_VERSION = 1.0.0
# The sources that this tree is a part of.
BBPFLASH_SITE = $(BR2_EXTERNAL_BBPFLASH_PATH)/../..
BBPFLASH_SITE_METHOD = local
BBPFLASH_LICENSE = Apache-2.0
BBPFLASH_LICENSE_FILES = LICENSE
BBPFLASH_CONF_OPTS = -DBBP_SIM=OFF -DBBP_TESTS=OFF -DBBP_WERROR=OFF

ifeq ($(BR2_PACKAGE_BBPFLASH_TOOLS),y)
BBPFLASH_DEPENDENCIES += cli11 json-for-modern-cpp openssl
BBPFLASH_CONF_OPTS += -DBBP_TOOLS=ON
else
BBPFLASH_CONF_OPTS += -DBBP_TOOLS=OFF
endif

$(eval $(cmake-package))
