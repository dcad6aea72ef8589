# SPDX-License-Identifier: Apache-2.0
# shellcheck shell=bash
#? fleet [N] [--faulty-every K] [--most-failures PERCENT] [--pace wire] [--keep FOLDER]
#?     update N simulated head units (12) by Ansible, in waves, and compare each with the report

need build engines
build_preset release bbpflash bbpsim bbpimage bbpwatch
/usr/bin/python3 tests/integrations/fleet.py "$@"
