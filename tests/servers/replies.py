#!/usr/bin/python3
"""replies.py REPLY...: a server that answers the first thing it is sent with the first reply, and so on."""

import os
import socket
import sys
import threading

server = socket.create_server(("127.0.0.1", 0))
print(server.getsockname()[1], flush=True)
threading.Thread(target=lambda: (sys.stdin.read(), os._exit(0))).start()
connection = server.accept()[0]
for reply in sys.argv[1:]:
    connection.recv(65536)
    connection.sendall(reply.encode())
