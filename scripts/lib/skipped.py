# SPDX-License-Identifier: MIT
"""Shows why tests were skipped, one line per reason, from the results that ctest has written.

    skipped.py RESULTS.xml
"""
import re
import sys
import xml.etree.ElementTree as xml

# GoogleTest shows the place and then the reason; pytest -rs shows "SKIPPED [number] file:line: reason".
GOOGLETEST = re.compile(r": Skipped\n(.+)")
PYTEST = re.compile(r"^SKIPPED \[(\d+)\] \S+?:\d+: (.+)", re.MULTILINE)

reasons = {}
for case in xml.parse(sys.argv[1]).getroot().iter("testcase"):
    output = case.findtext("system-out") or ""
    found = [(1, reason) for reason in GOOGLETEST.findall(output)]
    found += [(int(number), reason) for number, reason in PYTEST.findall(output)]
    if not found and case.find("skipped") is not None:
        found = [(1, "the test gives no reason")]
    for number, reason in found:
        reasons.setdefault(reason.strip(), []).append((number, case.get("name")))
if reasons:
    print("Skipped, and why:")
for reason, cases in reasons.items():
    number = sum(number for number, _ in cases)
    names = list(dict.fromkeys(name for _, name in cases))
    shown = ", ".join(names[:3]) + (", ..." if len(names) > 3 else "")
    print(f"  {number} x {reason} ({shown})")
