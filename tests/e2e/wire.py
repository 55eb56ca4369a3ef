"""What lies between a daemon and its server: passes on what they say to each other, up to some message, or later than it
came. By itself: wire.py FOLDER SERVER MILLISECONDS (there and back)"""
import os
import queue
import socket
import sys
import threading
import time

SOCKET = ".s.PGSQL.5432"


class Wire:
    def __init__(self, folder, server, delay=0.0):
        """Listens in one folder for what the server in the other one is to hear.  With a delay it only delays that."""
        self.folder, self.server, self.delay, self.lock = folder, server, delay, threading.Lock()
        self.passed, self.stop, self.spoil = 0, None, None  # what becomes of the server's messages
        os.makedirs(folder, exist_ok=True)
        self.listener = socket.socket(socket.AF_UNIX)
        self.listener.bind(f"{folder}/{SOCKET}")
        self.listener.listen(64)
        threading.Thread(target=self.accept, daemon=True).start()

    def arm(self, number, has_begun, hit=lambda: None):
        """Cuts the connection that comes to the message of this number, counted from now: before it, or in its middle."""
        self.passed, self.stop = 0, (number, has_begun, hit)

    def accept(self):
        while True:
            client, server = self.listener.accept()[0], socket.socket(socket.AF_UNIX)
            try:
                server.connect(f"{self.server}/{SOCKET}")
            except OSError:  # it does not run
                client.close()
                server.close()
                continue
            for source, target, is_answer in ((client, server, False), (server, client, True)):
                later = queue.SimpleQueue() if self.delay else None
                if later:
                    threading.Thread(target=self.send_later, args=(later, target), daemon=True).start()
                threading.Thread(target=self.carry, args=(source, target, is_answer, later), daemon=True).start()

    def carry(self, source, target, is_answer, later):
        pending, is_typed = b"", is_answer
        try:
            while chunk := source.recv(1 << 16):
                if later:
                    later.put((time.monotonic() + self.delay / 2, chunk))
                    continue
                pending += chunk
                # Only the first message of a client has no letter before its length.
                while len(pending) >= is_typed + 4 and len(pending) >= (
                        length := is_typed + int.from_bytes(pending[is_typed:is_typed + 4], "big")):
                    message, pending, is_typed = pending[:length], pending[length:], True
                    self.pass_on(message, is_answer, source, target)
        except OSError:
            pass
        self.close(source, target)
        source.close()

    def pass_on(self, message, is_answer, source, target):
        with self.lock:
            stop = self.stop if self.stop and self.stop[0] == self.passed else None
            self.passed += 1
            if stop:
                self.stop = None
        if stop:
            target.sendall(message[:len(message) // 2 if stop[1] else 0])
            self.close(source, target)
            stop[2]()
            raise OSError("cut")
        if self.spoil and is_answer:
            message = self.spoil(message)
        target.sendall(message)

    @staticmethod
    def send_later(later, target):
        try:
            while True:
                due, chunk = later.get()
                time.sleep(max(0.0, due - time.monotonic()))
                target.sendall(chunk)
        except OSError:
            pass

    @staticmethod
    def close(*ends):
        for end in ends:
            try:
                end.shutdown(socket.SHUT_RDWR)
            except OSError:  # the other thread was first
                pass


if __name__ == "__main__":
    Wire(sys.argv[1], sys.argv[2], float(sys.argv[3]) / 1000)
    threading.Event().wait()
