"""A call that is ended from the keyboard."""

import signal
import subprocess
import sys
import time

SCRIPT = """
import signal
import numpy as np
import vostrel
signal.signal(signal.SIGINT, signal.default_int_handler)  # a job in the background ignores it
{data}
print("ready", flush=True)
try:
    {call}
except KeyboardInterrupt:
    print("interrupted", flush=True)
"""


def wait_after_ctrl_c(data, call, after):
    """Press Ctrl-C `after` seconds into an endless call. Return how long the call goes on."""
    script = SCRIPT.format(data=data, call=call)
    process = subprocess.Popen([sys.executable, "-c", script], stdout=subprocess.PIPE, text=True)
    assert process.stdout.readline() == "ready\n"
    time.sleep(after)
    sent = time.monotonic()
    process.send_signal(signal.SIGINT)
    assert process.stdout.readline() == "interrupted\n"
    seconds = time.monotonic() - sent
    assert process.wait() == 0
    return seconds
