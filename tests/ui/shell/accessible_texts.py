#!/usr/bin/python3
"""Prints every element an application shows on AT-SPI, as a screen reader
reads it: one line "role<TAB>name" for each element that is showing and has a
name. Exits 2 when the application is not on the bus within the bound."""

import os
import sys

import pyatspi

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
from accessible_tree import find_application, walk  # noqa: E402


def main():
    name = sys.argv[1]
    application = find_application(name, 20)
    if application is None:
        print("no application named", name)
        return 2
    for node in walk(application):
        if not node.getState().contains(pyatspi.STATE_SHOWING):
            continue
        label = (node.name or "").strip()
        if label:
            print(f"{node.getRoleName()}\t{label}")
    return 0


if __name__ == "__main__":
    sys.exit(main())
