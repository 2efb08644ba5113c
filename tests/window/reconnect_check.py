"""One script behind the other at the door, each at once when the one before has closed: nobody is
taken for a second one.

    reconnect_check.py PORT
"""
import socket
import sys


def client(closes_itself):
    with socket.create_connection(("127.0.0.1", int(sys.argv[1])), timeout=30) as link:
        link.sendall(b"*IDN?\n")
        answer = link.recv(100)
        assert answer.startswith(b"Lumascan,") and answer.endswith(b"\n"), answer
        if closes_itself:
            link.shutdown(socket.SHUT_RDWR)
        else:
            link.sendall(b"*IDN?\n")  # and does not read the answer


for number in range(400):
    try:
        client(number % 2 == 0)
    except OSError as error:
        sys.exit(f"client {number}: {error}")
