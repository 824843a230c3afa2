#!/usr/bin/env python3
"""Debian's SMB server on a free port of this machine; needs samba, and root.

For the present user with the password "secret". Keeps its state in the directory that is given. The current directory
is the share "served"; the share "closed" lets nobody in. Prints its port and serves until standard input ends.
"""

import getpass
import os
import pathlib
import socket
import subprocess
import sys
import time

if os.geteuid() != 0:
    sys.exit("only root can add a user to the server")
state = pathlib.Path(sys.argv[1]).resolve()
user = getpass.getuser()
with socket.socket() as probe:
    probe.bind(("127.0.0.1", 0))
    port = probe.getsockname()[1]
config = state / "smb.conf"
# The client library speaks no newer version of the protocol.
config.write_text(f"""[global]
server min protocol = NT1
ntlm auth = yes
interfaces = lo
bind interfaces only = yes
smb ports = {port}
private dir = {state}
lock directory = {state}
state directory = {state}
cache directory = {state}
pid directory = {state}
ncalrpc dir = {state}/ncalrpc
log file = {state}/log
passdb backend = smbpasswd:{state}/smbpasswd
load printers = no
disable spoolss = yes
[served]
path = {os.getcwd()}
read only = no
[closed]
path = {os.getcwd()}
valid users = nobody
""")
quiet = {"stdout": subprocess.DEVNULL, "stderr": subprocess.DEVNULL}
subprocess.run(["smbpasswd", "-c", config, "-L", "-s", "-a", user], input=b"secret\nsecret\n", check=True, **quiet)
server = subprocess.Popen(["/usr/sbin/smbd", "-F", "-s", config], stdin=subprocess.DEVNULL, **quiet)
try:
    for _ in range(200):
        with socket.socket() as probe:
            if probe.connect_ex(("127.0.0.1", port)) == 0:
                break
        time.sleep(0.05)
    else:
        sys.exit("smbd does not answer")
    print(port, flush=True)
    sys.stdin.read()
finally:
    server.terminate()  # and, with it, what it has started
    server.wait()
