#!/usr/bin/python3
"""An FTP server for the current directory; needs python3-pyftpdlib.

The users "tester" and "letterbox", who may not read, have the password "secret". Prints its port and serves until
standard input ends.
"""

import logging
import os
import sys
import threading

from pyftpdlib.authorizers import DummyAuthorizer
from pyftpdlib.handlers import FTPHandler
from pyftpdlib.servers import FTPServer

logging.disable(logging.CRITICAL)
authorizer = DummyAuthorizer()
authorizer.add_user("tester", "secret", os.getcwd(), perm="elradfmw")
authorizer.add_user("letterbox", "secret", os.getcwd(), perm="elw")
FTPHandler.authorizer = authorizer
FTPHandler.auth_failed_timeout = 0
server = FTPServer(("127.0.0.1", 0), FTPHandler)
print(server.address[1], flush=True)
threading.Thread(target=server.serve_forever, kwargs={"handle_exit": False}, daemon=True).start()
sys.stdin.read()
os._exit(0)
