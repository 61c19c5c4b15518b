#!/usr/bin/python3
"""Acts on an application the way a screen reader user does, over AT-SPI
alone: finds a showing element by its accessible name and performs its
default action (what Enter or a switch press does to it).

    accessible_action.py APP press NAME [BOUND_SECONDS]
    accessible_action.py APP wait NAME [BOUND_SECONDS]

press: performs the element's "Press" action (or its first action when it
names none so). wait: only waits until the element shows. Prints what it
found; exits 0 on success, 2 when the application is not on the bus, 3 when
no such element showed within the bound, 4 when the action failed."""

import sys
import time

import pyatspi

ACTIONS = ("press", "click", "activate", "toggle")


def walk(node, depth=0):
    if node is None or depth > 60:
        return
    yield node
    try:
        count = node.childCount
    except Exception:  # an element that went away while being read
        return
    for index in range(count):
        try:
            child = node.getChildAtIndex(index)
        except Exception:
            continue
        yield from walk(child, depth + 1)


def find_application(name, deadline):
    while time.monotonic() < deadline:
        desktop = pyatspi.Registry.getDesktop(0)
        for index in range(desktop.childCount):
            application = desktop.getChildAtIndex(index)
            if application is not None and application.name == name:
                return application
        time.sleep(0.2)
    return None


def find_showing(application, name, deadline):
    while time.monotonic() < deadline:
        for node in walk(application):
            try:
                if node.name != name:
                    continue
                states = node.getState()
                if states.contains(pyatspi.STATE_SHOWING) and states.contains(
                    pyatspi.STATE_SENSITIVE
                ):
                    return node
            except Exception:
                continue
        time.sleep(0.2)
    return None


def press(node):
    action = node.queryAction()
    names = [action.getName(index).lower() for index in range(action.nActions)]
    for wanted in ACTIONS:
        if wanted in names:
            return action.doAction(names.index(wanted)), names
    if action.nActions > 0:
        return action.doAction(0), names
    return False, names


def main():
    if len(sys.argv) < 4 or sys.argv[2] not in ("press", "wait"):
        print(__doc__)
        return 1
    application_name, command, name = sys.argv[1:4]
    bound = float(sys.argv[4]) if len(sys.argv) > 4 else 15.0
    deadline = time.monotonic() + bound
    application = find_application(application_name, deadline)
    if application is None:
        print("no application named", application_name)
        return 2
    node = find_showing(application, name, deadline)
    if node is None:
        print("nothing named", repr(name), "showed")
        return 3
    print(f"found {node.getRoleName()} {name!r}")
    if command == "wait":
        return 0
    done, actions = press(node)
    print(f"actions {actions}: {'done' if done else 'failed'}")
    return 0 if done else 4


if __name__ == "__main__":
    sys.exit(main())
