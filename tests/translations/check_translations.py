#!/usr/bin/python3
"""Checks the app's translation files against its sources.

  check_translations.py current PROJECT_CMAKE GENERATOR LUPDATE TS...
      lupdate (as the velnor-rz_lupdate target runs it) into a copy of each
      .ts file; fails when the copy's texts differ from the file's, that is
      when the file misses a text of the sources or keeps one they dropped.
  check_translations.py current-catches-new PROJECT_CMAKE GENERATOR LUPDATE TS
      the same check with one more source holding a text in no file: it must
      fail, and name that text.
  check_translations.py finished TS...
      fails when a message has no translation, is marked unfinished, or loses
      or gains a placeholder (%1, %n, %L1) or a space at either end.
"""

import json
import os
import re
import shutil
import subprocess
import sys
import tempfile
import xml.etree.ElementTree as ET

LUPDATE_OPTIONS = ["-locations", "none", "-no-obsolete", "-silent"]


def messages(path):
    """The texts of a .ts file: (context, source, comment) for each message."""
    found = set()
    for context in ET.parse(path).getroot().iter("context"):
        name = context.findtext("name")
        for message in context.iter("message"):
            found.add((name, message.findtext("source"), message.findtext("comment") or ""))
    return found


def project_json(project_cmake, generator, directory, extra_sources=()):
    out = os.path.join(directory, "project.json")
    subprocess.run(["cmake", f"-DIN_FILE={project_cmake}", f"-DOUT_FILE={out}", "-P", generator],
                   check=True)
    if extra_sources:
        with open(out, encoding="utf-8") as f:
            project = json.load(f)
        project["sources"] += list(extra_sources)
        with open(out, "w", encoding="utf-8") as f:
            json.dump(project, f)
    return out


def stale(project_cmake, generator, lupdate, ts_files, extra_sources=()):
    """Per .ts file, the texts lupdate adds and those it drops."""
    problems = []
    with tempfile.TemporaryDirectory() as directory:
        project = project_json(project_cmake, generator, directory, extra_sources)
        for ts in ts_files:
            copy = os.path.join(directory, os.path.basename(ts))
            shutil.copyfile(ts, copy)
            subprocess.run([lupdate, "-project", project, *LUPDATE_OPTIONS, "-ts", copy],
                           check=True)
            before, after = messages(ts), messages(copy)
            for text in sorted(after - before):
                problems.append(f"{os.path.basename(ts)}: missing {text[0]}: {text[1]!r}")
            for text in sorted(before - after):
                problems.append(f"{os.path.basename(ts)}: no longer in the sources "
                                f"{text[0]}: {text[1]!r}")
    return problems


PLACEHOLDER = re.compile(r"%L?\d+|%n")


def unfinished(ts):
    problems = []
    name = os.path.basename(ts)
    for context in ET.parse(ts).getroot().iter("context"):
        where = context.findtext("name")
        for message in context.iter("message"):
            source = message.findtext("source") or ""
            translation = message.find("translation")
            forms = [f.text or "" for f in translation.iter("numerusform")] or \
                    [translation.text or ""]
            if translation.get("type") in ("unfinished", "obsolete", "vanished") or \
                    not all(forms):
                problems.append(f"{name}: not translated {where}: {source!r}")
                continue
            for form in forms:
                if sorted(PLACEHOLDER.findall(form)) != sorted(PLACEHOLDER.findall(source)) \
                        and not (message.get("numerus") == "yes" and "%n" not in form):
                    problems.append(f"{name}: placeholders differ {where}: {source!r} -> {form!r}")
                for end, text in (("start", source[:1]), ("end", source[-1:])):
                    got = form[:1] if end == "start" else form[-1:]
                    if (text == " ") != (got == " "):
                        problems.append(f"{name}: space at the {end} differs {where}: "
                                        f"{source!r} -> {form!r}")
    return problems


def report(problems):
    for problem in problems:
        print(problem)
    print(f"{len(problems)} problem(s)")
    return 1 if problems else 0


def main(argv):
    command = argv[1]
    if command == "current":
        project_cmake, generator, lupdate, *ts_files = argv[2:]
        problems = stale(project_cmake, generator, lupdate, ts_files)
        if problems:
            print("Run ./run translations to bring the files up to date, then translate.")
        return report(problems)
    if command == "current-catches-new":
        project_cmake, generator, lupdate, ts = argv[2:]
        with tempfile.TemporaryDirectory() as directory:
            source = os.path.join(directory, "Added.qml")
            with open(source, "w", encoding="utf-8") as f:
                f.write('import QtQuick\nText { text: qsTr("A text in no catalogue yet") }\n')
            problems = stale(project_cmake, generator, lupdate, [ts], [source])
        expected = f"{os.path.basename(ts)}: missing Added: 'A text in no catalogue yet'"
        if problems != [expected]:
            print("expected only:", expected)
            print("found:", problems)
            return 1
        return 0
    if command == "finished":
        problems = []
        for ts in argv[2:]:
            problems += unfinished(ts)
        return report(problems)
    print(__doc__)
    return 2


if __name__ == "__main__":
    sys.exit(main(sys.argv))
