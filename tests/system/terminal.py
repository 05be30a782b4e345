"""A program on a pseudo-terminal: what a user would type, and what stands on the screen."""
import fcntl
import os
import re
import select
import struct
import subprocess
import termios
import time

from harness import check

PATIENCE_SECONDS = 60
CONTROL = re.compile(r"\x1b(?:\[[0-9;?]*[A-Za-z]|[()][A-Z0-9]|[=>])|\r|\x07")


class Terminal:
    """Starts the program. What it prints is kept whole; `expect` moves a mark forward in it."""

    def __init__(self, arguments, columns=100, **variables):
        self.master, slave = os.openpty()
        fcntl.ioctl(slave, termios.TIOCSWINSZ, struct.pack("HHHH", 40, columns, 0, 0))
        environment = {**os.environ, "TERM": "xterm", "LC_ALL": "C.UTF-8", **variables}
        self.process = subprocess.Popen(arguments, stdin=slave, stdout=slave, stderr=slave, env=environment,
                                        start_new_session=True,
                                        preexec_fn=lambda: fcntl.ioctl(slave, termios.TIOCSCTTY, 0))
        os.close(slave)
        self.raw = b""
        self.mark = 0

    def close(self):
        if self.process.poll() is None:
            self.process.kill()
            self.process.wait()
        os.close(self.master)

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.close()

    def text(self):
        """All that was printed, without what only moves the cursor or colours."""
        return CONTROL.sub("", self.raw.decode(errors="replace"))

    def _read_more(self, until):
        ready, _, _ = select.select([self.master], [], [], max(0, until - time.monotonic()))
        if not ready:
            return False
        try:
            block = os.read(self.master, 65536)
        except OSError:  # the program has let go of its end
            return False
        self.raw += block
        return bool(block)

    def expect(self, wanted):
        """What comes before `wanted`, behind the mark; the mark is behind it then."""
        until = time.monotonic() + PATIENCE_SECONDS
        while self.text().find(wanted, self.mark) < 0:
            check(self._read_more(until), "no %r on the terminal:\n%s", wanted, self.text()[-3000:])
        text = self.text()
        end = text.index(wanted, self.mark)
        before = text[self.mark:end]
        self.mark = end + len(wanted)
        return before

    def type(self, keys):
        os.write(self.master, keys.encode())

    def end(self):
        """The exit code, once the program has ended by itself."""
        until = time.monotonic() + PATIENCE_SECONDS
        while self._read_more(until):
            pass
        return self.process.wait(timeout=PATIENCE_SECONDS)
