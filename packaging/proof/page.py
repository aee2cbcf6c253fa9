# SPDX-License-Identifier: MIT
"""Makes the proof of a release from the records of what was measured: proof.json, and from it proof.md and proof.html.

    page.py TREE DIRECTORY
"""
import html
import json
import pathlib
import re
import statistics
import subprocess
import sys
import tempfile

import records

NOT_MEASURED = "not measured"
STYLE = """body { max-width: 75rem; margin: 2rem auto; padding: 0 1rem; font: 1rem/1.5 system-ui, sans-serif; color-scheme: light dark; }
table { border-collapse: collapse; width: 100%; } th, td { border: 1px solid #8888; padding: .4rem .6rem; text-align: left; vertical-align: top; }
tr.open td { opacity: .75; } code { overflow-wrap: anywhere; }"""


def version_of(tree):
    return re.search(r"^project\(vos VERSION ([\d.]+)", (tree / "CMakeLists.txt").read_text(encoding="utf-8"), flags=re.M)[1]


def interface(tree):
    """Compares the description of the interface with that of the release before. It takes no measurement by another command."""
    released = re.findall(r"^## (\d[\d.]*) - ", (tree / "CHANGELOG.md").read_text(encoding="utf-8"), flags=re.M)
    if len(released) < 2:
        return "this is the first release: there is nothing to compare with", "the releases in CHANGELOG.md"
    before = records.git(tree, "show", f"v{released[1]}:tests/abi/libvos.abi")
    if not before:
        return None
    with tempfile.NamedTemporaryFile("w", suffix=".abi") as file:
        file.write(before + "\n")
        file.flush()
        done = subprocess.run(["abidiff", file.name, tree / "tests/abi/libvos.abi"], check=False, capture_output=True, text=True)
    if done.returncode & 3:
        raise SystemExit(f"proof: abidiff says {done.stdout}{done.stderr}")
    summary = [line for line in done.stdout.splitlines() if "summary" in line]
    return "; ".join(summary) or f"no difference to {released[1]}", f"abidiff of tests/abi/libvos.abi and that of the tag v{released[1]}"


def benchmarks(tree):
    """The figures that scripts/bench has written to the tree, as a record."""
    path = "docs/benchmarks/figures.json"
    figures = json.loads((tree / path).read_text(encoding="utf-8"))
    ratios = [row["rate_ratio"]["median"] for row in figures["floor"] if row.get("rate_ratio")]
    if figures["quick"] or not ratios:
        return None
    return {
        "figure": f"{statistics.median(ratios):.3f} in the median of {len(ratios)} sizes, placements and numbers of clients ({min(ratios):.3f} to {max(ratios):.3f})",
        "measured": f"bench/, on {figures['cpus']} processors, {figures['machine']}, kernel {figures['kernel']}; {path}",
        "command": "scripts/bench",
        "date": figures["date"],
        "commit": records.git(tree, "log", "-1", "--format=%H", "--", path),
        "changed": False,
    }


def distance(tree, commit):
    """Says so when something was measured on another commit than the present one."""
    head = records.git(tree, "rev-parse", "HEAD")
    if not commit:
        return "at a commit that is not known"
    if commit == head:
        return ""
    number = records.git(tree, "rev-list", "--count", f"{commit}..HEAD")
    return f"on another commit, {commit[:12]}" + (f", {number} commit{'s' if number != '1' else ''} before this one" if number.isdigit() and int(number) else "")


def rows(tree):
    for name, row in records.claims()[0].items():
        record = records.read(tree, name)
        if record is None and name == "benchmarks":
            record = benchmarks(tree)
        if record is None:
            yield {"name": name, "group": row["group"], "claim": row["claim"], "figure": None, "measured": None, "command": row["command"]}
            continue
        notes = [note for note in (distance(tree, record["commit"]), "with changes that were not committed" if record["changed"] else "") if note]
        yield {"name": name, "group": row["group"], **record, "claim": row["claim"], "notes": notes}


def markdown(proof):
    def cell(text):
        return text.replace("|", "\\|").replace("\n", " ")

    lines = [f"# Proof of vos {proof['version']}", "", f"Commit {proof['commit']}{', with changes that are not committed' if proof['changed'] else ''}. "
             "Each figure was written by the command that measured it. A command of a row repeats the measurement in a checkout.", ""]
    group = None
    for row in proof["rows"]:
        if row["group"] != group:
            group = row["group"]
            lines += ["", f"## {group}", "", "| claim | figure | how it was measured | command |", "|---|---|---|---|"]
        how = "-" if row["figure"] is None else "; ".join([f"{row['measured']}; {row['date']}", *row["notes"]])
        lines.append(f"| {cell(row['claim'])} | {cell(row['figure'] or f'**{NOT_MEASURED}**')} | {cell(how)} | `{cell(row['command'])}` |")
    lines += ["", "## Not covered", "", "| what | why |", "|---|---|"]
    lines += [f"| {cell(each['what'])} | {cell(each['why'])} |" for each in proof["not_covered"]]
    return re.sub(r"\n{3,}", "\n\n", "\n".join(lines)) + "\n"


def page(proof):
    """The same as HTML. It is one file, so that it can be sent."""
    say = html.escape
    body = [f"<h1>Proof of vos {say(proof['version'])}</h1>", f"<p>Commit {say(proof['commit'])}{', with changes that are not committed' if proof['changed'] else ''}. "
            "Each figure was written by the command that measured it. A command of a row repeats the measurement in a checkout.</p>"]
    group = None
    for row in proof["rows"]:
        if row["group"] != group:
            body += (["</table>"] if group else []) + [f"<h2>{say(row['group'])}</h2>", "<table>",
                     "<tr><th>claim</th><th>figure</th><th>how it was measured</th><th>command</th></tr>"]
            group = row["group"]
        how = "-" if row["figure"] is None else "; ".join([f"{row['measured']}; {row['date']}", *row["notes"]])
        body.append(f"<tr{' class=open' if row['figure'] is None else ''} id=\"{say(row['name'])}\"><td>{say(row['claim'])}</td><td>{say(row['figure'] or NOT_MEASURED)}</td>"
                    f"<td>{say(how)}</td><td><code>{say(row['command'])}</code></td></tr>")
    body += ["</table>", "<h2>Not covered</h2>", "<table>", "<tr><th>what</th><th>why</th></tr>"]
    body += [f"<tr><td>{say(each['what'])}</td><td>{say(each['why'])}</td></tr>" for each in proof["not_covered"]] + ["</table>"]
    return (f'<!DOCTYPE html>\n<html lang="en">\n<head>\n<meta charset="utf-8">\n<title>Proof of vos {say(proof["version"])}</title>\n'
            f"<style>\n{STYLE}\n</style>\n</head>\n<body>\n" + "\n".join(body) + "\n</body>\n</html>\n")


def main():
    if len(sys.argv) != 3:
        sys.exit(__doc__)
    tree, out = map(pathlib.Path, sys.argv[1:])
    told = interface(tree)
    if told:
        records.write(tree, "interface-release", *told)
    proof = {
        "version": version_of(tree),
        "commit": records.git(tree, "rev-parse", "HEAD"),
        "changed": bool(records.git(tree, "status", "--porcelain")),
        "rows": list(rows(tree)),
        "not_covered": records.claims()[1],
    }
    (out / "proof.json").write_text(json.dumps(proof, indent=1, ensure_ascii=False) + "\n", encoding="utf-8")
    proof = json.loads((out / "proof.json").read_text(encoding="utf-8"))  # the pages show what the file has, and nothing else
    (out / "proof.md").write_text(markdown(proof), encoding="utf-8")
    (out / "proof.html").write_text(page(proof), encoding="utf-8")
    open_rows = [row["name"] for row in proof["rows"] if row["figure"] is None]
    print(f"{len(proof['rows']) - len(open_rows)} of {len(proof['rows'])} claims have a figure" + (f"; {NOT_MEASURED}: {', '.join(open_rows)}" if open_rows else ""))


if __name__ == "__main__":
    main()
