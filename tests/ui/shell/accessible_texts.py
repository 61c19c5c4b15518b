#!/usr/bin/python3
"""Prints every element an application shows on AT-SPI, as a screen reader
reads it: one line "role<TAB>name" for each element that is showing and has a
name, once a push button shows (the window has drawn its first screen). Exits
2 when the application is not on the bus, or shows no button, within the bound."""

import os
import sys
import time

import pyatspi

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
from accessible_tree import find_application, walk  # noqa: E402


def main():
    name = sys.argv[1]
    application = find_application(name, 20)
    if application is None:
        print("no application named", name)
        return 2
    deadline = time.monotonic() + 30
    while True:
        texts = []
        for node in walk(application):
            if not node.getState().contains(pyatspi.STATE_SHOWING):
                continue
            label = (node.name or "").strip()
            if label:
                texts.append((node.getRole(), f"{node.getRoleName()}\t{label}"))
        if any(role == pyatspi.ROLE_PUSH_BUTTON for role, _ in texts):
            break
        if time.monotonic() > deadline:
            print("no button showed:", [text for _, text in texts])
            return 2
        time.sleep(0.2)
    for _, text in texts:
        print(text)
    return 0


if __name__ == "__main__":
    sys.exit(main())
