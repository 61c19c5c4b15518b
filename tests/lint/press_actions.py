#!/usr/bin/python3
"""Fails when a control in the app's QML does not act on the accessibility
press action. Qt Quick's controls offer "Press" to screen readers and switch
access but do nothing on it unless the item handles Accessible.onPressAction,
so a control without the handler cannot be used without a mouse or keyboard.

    press_actions.py FOLDER...

Prints each control without the handler as FILE:LINE: TYPE and exits 1 when
there is any."""

import pathlib
import re
import sys

CONTROL = re.compile(
    r"^(\s*)(Button|RoundButton|ToolButton|AbstractButton|ItemDelegate|Switch|CheckBox|"
    r"RadioButton|MenuItem|TabButton|DelayButton) \{\s*$")


def missing(path):
    lines = path.read_text(encoding="utf-8").split("\n")
    for number, line in enumerate(lines):
        match = CONTROL.match(line)
        if not match:
            continue
        inner = match.group(1) + "    "
        # The handler stands among the control's own properties, right at the start.
        own = [l for l in lines[number + 1:number + 4] if l.startswith(inner)]
        if not any(l.strip().startswith("Accessible.onPressAction") for l in own):
            yield number + 1, match.group(2)


def main():
    found = 0
    for folder in sys.argv[1:]:
        for path in sorted(pathlib.Path(folder).glob("*.qml")):
            for number, kind in missing(path):
                print(f"{path}:{number}: {kind} does not handle Accessible.onPressAction")
                found += 1
    if found:
        print(f"{found} control(s) a screen reader cannot press")
        return 1
    return 0


if __name__ == "__main__":
    sys.exit(main())
