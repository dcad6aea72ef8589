#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# unit_sshd.sh FOLDER ADDRESS [PORT]: a login into a simulated head unit. Run inside bbpsim, it is an
# SSH server there until the unit is switched off; FOLDER becomes the unit's home and holds
# host_key and authorized_keys, which ssh-keygen makes.
#
#     bbpsim -- unit_sshd.sh FOLDER 127.0.2.1
#     ssh -p 2222 -i KEY 127.0.2.1 bbpflash -i
set -euo pipefail
(($# >= 2)) || { echo "usage: unit_sshd.sh FOLDER ADDRESS [PORT]" >&2; exit 64; }
folder=$(readlink -f "$1") address=$2 port=${3-2222}

# A login starts with a fresh environment, which would leave the simulated unit.
cat >"$folder/sshd_config" <<END
ListenAddress $address:$port
HostKey $folder/host_key
AuthorizedKeysFile $folder/authorized_keys
PidFile none
UsePAM no
UseDNS no
StrictModes no
MaxStartups 100
Subsystem sftp internal-sftp
SetEnv "HOME=$folder" "PATH=$PATH" "LD_PRELOAD=$LD_PRELOAD" "UMOCKDEV_DIR=$UMOCKDEV_DIR"
END
if ((EUID == 0)); then
    mkdir -p /run/sshd
fi
exec /usr/sbin/sshd -D -e -f "$folder/sshd_config"
