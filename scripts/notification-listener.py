#!/usr/bin/python3
"""Listens for the updater's progress notifications (protocol: docs/notifications.md).

  notification-listener.py [--name VLTesselCallback | --socket PATH]
                           [--implements "incrementRemoteProgress postFinishedTask ..."]
                           [--no-answer | --silent] [--connections]

The socket is $TMPDIR/<name> unless --socket gives a path. Prints "listening <path>" first,
then one JSON line per message: {"message": name, "arguments": [...]}. Runs until killed.
--no-answer never says "ok"; --silent does not even say what it implements (a stuck client).
--connections also prints {"connected": true} for every client that connects.
"""

import argparse
import json
import os
import socket
import sys
import tempfile
import threading

ALL = ("incrementRemoteProgress postFinishedTask postError:forApp: postError: "
       "postErrorString:userInfo: postErrorString: postDisconnect")
PRINT_LOCK = threading.Lock()


def serve_client(conn, implemented, answer):
    with conn, conn.makefile("rwb") as stream:
        if implemented is not None:
            stream.write(("implements %s\n" % implemented).encode())
            stream.flush()
        for raw in stream:
            line = raw.decode("utf-8", "replace").rstrip("\n")
            name, _, args = line.partition(" ")
            try:
                arguments = json.loads(args) if args else []
            except ValueError:
                arguments = {"unparsed": args}
            with PRINT_LOCK:
                print(json.dumps({"message": name, "arguments": arguments}), flush=True)
            if answer:
                stream.write(b"ok\n")
                stream.flush()


def main():
    p = argparse.ArgumentParser(description="notification listener")
    p.add_argument("--name", default="VLTesselCallback")
    p.add_argument("--socket")
    p.add_argument("--implements", default=ALL)
    p.add_argument("--no-answer", action="store_true")
    p.add_argument("--silent", action="store_true")
    p.add_argument("--connections", action="store_true")
    args = p.parse_args()
    path = args.socket or os.path.join(os.environ.get("TMPDIR") or tempfile.gettempdir(), args.name)
    if os.path.exists(path):
        os.unlink(path)
    server = socket.socket(socket.AF_UNIX, socket.SOCK_STREAM)
    server.bind(path)
    os.chmod(path, 0o777)  # reachable from runs under another (unprivileged) uid
    server.listen(16)
    print("listening %s" % path, flush=True)
    try:
        while True:
            conn, _ = server.accept()
            if args.connections:
                with PRINT_LOCK:
                    print(json.dumps({"connected": True}), flush=True)
            implemented = None if args.silent else args.implements
            answer = not (args.no_answer or args.silent)
            threading.Thread(target=serve_client, args=(conn, implemented, answer), daemon=True).start()
    except KeyboardInterrupt:
        pass
    finally:
        os.unlink(path)


if __name__ == "__main__":
    sys.exit(main())
