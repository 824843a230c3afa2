#!/usr/bin/env python3
"""Debian's SSH server on a free port of this machine, for the present user and a fresh key; needs openssh-server.

Takes the older signatures, too: Debian 12's client library knows no others.

Works in the directory that is given: keys, configuration and a ".ssh" for the client whose HOME it is. File
transfers begin in the current directory. Prints the port and serves until standard input ends.
"""

import getpass
import os
import pathlib
import socket
import subprocess
import sys
import time

home = pathlib.Path(sys.argv[1]).resolve()
ssh = home / ".ssh"
ssh.mkdir(mode=0o700)


def key(path):
    subprocess.run(["ssh-keygen", "-q", "-t", "rsa", "-m", "PEM", "-N", "", "-f", path], check=True)


key(ssh / "id_rsa")
key(home / "host_key")
with socket.socket() as probe:
    probe.bind(("127.0.0.1", 0))
    port = probe.getsockname()[1]
(home / "authorized_keys").write_text((ssh / "id_rsa.pub").read_text())
host = (home / "host_key.pub").read_text().split()[:2]
(ssh / "known_hosts").write_text(f"[127.0.0.1]:{port} {host[0]} {host[1]}\n")
(home / "sshd_config").write_text(f"""ListenAddress 127.0.0.1
Port {port}
HostKey {home}/host_key
PidFile none
HostKeyAlgorithms +ssh-rsa
PubkeyAcceptedAlgorithms +ssh-rsa
UsePAM no
PasswordAuthentication no
StrictModes no
PermitRootLogin yes
AllowUsers {getpass.getuser()}
AuthorizedKeysFile {home}/authorized_keys
Subsystem sftp internal-sftp -d {os.getcwd()}
""")
if os.geteuid() == 0:
    os.makedirs("/run/sshd", mode=0o755, exist_ok=True)
server = subprocess.Popen(["/usr/sbin/sshd", "-D", "-e", "-f", str(home / "sshd_config")], stderr=subprocess.DEVNULL)
try:
    for _ in range(100):
        with socket.socket() as probe:
            if probe.connect_ex(("127.0.0.1", port)) == 0:
                break
        time.sleep(0.05)
    print(port, flush=True)
    sys.stdin.read()
finally:
    server.terminate()
