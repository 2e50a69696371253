"""Waiting in scenarios: never for a fixed time, always for something, with a deadline."""
import time


def wait_until(condition, what, seconds=5.0):
    """Polls until `condition()` is true and returns its value. `what` completes the failure's text."""
    end = time.monotonic() + seconds
    while True:
        value = condition()
        if value:
            return value
        if time.monotonic() > end:
            raise AssertionError(f"not within {seconds:g} s: {what}")
        time.sleep(0.02)
