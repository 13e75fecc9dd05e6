#!/usr/bin/env python3
"""What every file of the source tree must hold; prints each place where one does not, and ends with 1 if there is any.

    tests/house/house_rules.py [ROOT]

The rules are those of docs/architecture.md (who may include whom) and CONTRIBUTING.md (which helper to use instead of
what). Whoever changes a rule changes it there too.
"""

import re
import subprocess
import sys
from pathlib import Path

LONGEST_FILE = 400
LONGEST_FUNCTION = 60
# Those that are longer still, and may not grow: each is to become several files of its folder.
LONGER_STILL = {
    "host/memory_service.cpp": 460,
    "src/iniparser/iniparser.cpp": 616,
    "src/logman/logman.cpp": 588,
    "src/persian_calendar/persian_calendar.cpp": 498,
    "src/rt_print/rt_print.cpp": 462,
    "src/vk_system/vk_system.cpp": 882,
}
LONG_FUNCTIONS_STILL = {("examples/recorder/recorder.cpp", "faults_of"): 83}
MEASURED = ("src/", "host/", "tools/", "examples/")

# ---- Who may include whom ----
#
# For each folder: what "..." and <...> of this project may begin with. {own} is the folder of a unit of src/. Headers of
# the C library and of the C++ library are everybody's, but for those that src/ and host/ cannot have at run time.
ARROWS = {
    "include/velkor/": ("velkor/",),
    "src/support/": ("velkor/", "support/"),
    "src/": ("velkor/", "support/", "{own}/"),
    "host/": ("velkor/firmware.h", "velkor/diagnostics.h", "velkor_host.h", "{beside}"),
    "tools/velkor/": ("velkor/", "velkor_host.h", "{beside}"),
    "examples/": ("velkor/", "velkor_host.h", "{beside}"),
}
RUN_TIME_OF_CXX = {
    "fstream", "functional", "future", "iomanip", "ios", "iostream", "istream", "list", "locale", "map", "memory", "mutex",
    "ostream", "queue", "regex", "set", "sstream", "stdexcept", "string", "thread", "unordered_map", "vector",
}  # fmt: skip
NOT_IN_A_SMALL_C_LIBRARY = {"execinfo.h", "error.h", "glob.h"}

# ---- Instead of what ----
#
# What is not written in src/, and the files that may: those that offer the better way.
NEVER = [
    (r"\bvk_printftomem\s*\(", "VK_LOG of support/log.h asks first", ("src/support/log.h", "src/logman/")),
    (r"\b(assert|abort)\s*\(", "velkor::report_assertion", ()),
    (r"\bpthread_mutex_(try)?lock\s*\(", "velkor::LockGuard, velkor::hold_over_fork",
     # A found entry stays locked for the caller; a child looks whether a buffer's lock is held; a fork holds the others.
     ("src/support/lock_guard.h", "src/support/local_time.cpp", "src/support/platform.h", "src/safe_circle_queue.cpp",
      "src/rt_print/")),
    (r"\b(localtime|localtime_r|gmtime|gmtime_r|mktime|timegm|ctime|ctime_r|asctime|asctime_r|strftime|tzset)\s*\(",
     "support/local_time.h", ("src/support/local_time.cpp",)),
    (r"\b(usleep|sleep|nanosleep|clock_nanosleep)\s*\(", "support/pause.h", ("src/support/pause.h",)),
    (r"\bselect\s*\(", "velkor::wait_readable", ()),
    (r"\bpoll\s*\(", "velkor::wait_readable", ("src/support/uninterrupted.h",)),
    (r"\bsyscall\s*\(", "support/platform.h, support/polled_word.h",
     ("src/support/platform.h", "src/support/polled_word.h")),
    (r"\bpthread_atfork\s*\(", "velkor::when_forked, velkor::around_fork", ("src/support/platform.h",)),
    (r"\bfopen\s*\(", "support/open_file.h", ("src/support/open_file.h",)),
    (r"__builtin_cpu_supports|getauxval", "velkor::BestVersion", ("src/support/x86_features.h",)),
]  # fmt: skip

complaints = []


def complain(path, line, text):
    complaints.append(f"{path}:{line}: {text}")


def files_of(root):
    # With what is new and not yet known to git, but for what it ignores.
    listed = subprocess.run(
        ["git", "-c", "safe.directory=*", "-C", str(root), "ls-files", "-z", "--cached", "--others", "--exclude-standard"],
        check=True, capture_output=True, text=True).stdout  # fmt: skip
    return sorted({name for name in listed.split("\0") if name and (root / name).is_file()})


def is_source(name):
    return name.endswith((".h", ".cpp", ".c"))


def without_comments(text):
    """The same text with comments and the insides of strings blank, line for line."""
    pattern = re.compile(r'//[^\n]*|/\*.*?\*/|"(?:\\.|[^"\\\n])*"|\'(?:\\.|[^\'\\\n])*\'', re.DOTALL)
    return pattern.sub(lambda match: re.sub(r"[^\n]", " ", match.group()), text)


# ---- The rules ----


def arrows_of(name):
    for folder, allowed in ARROWS.items():
        if name.startswith(folder):
            return allowed
    return None


def own_folder(name):
    parts = Path(name).parts
    return parts[1] if len(parts) > 2 else Path(name).stem


def check_includes(root, name, text):
    allowed = arrows_of(name)
    if allowed is None:
        return
    prefixes = [prefix.replace("{own}", own_folder(name)) for prefix in allowed if prefix != "{beside}"]
    for number, line in enumerate(text.splitlines(), 1):
        match = re.match(r'\s*#\s*include\s*([<"])([^>"]+)[>"]', line)
        if not match:
            continue
        is_quoted, header = match.group(1) == '"', match.group(2)
        of_project = is_quoted or header.startswith("velkor")
        beside = "{beside}" in allowed and is_quoted and (root / Path(name).parent / header).is_file()
        if of_project and not beside and not header.startswith(tuple(prefixes)):
            complain(name, number, f"{header} is not for this folder: see the table of docs/architecture.md")
        if name.startswith("src/") and header in RUN_TIME_OF_CXX:
            complain(name, number, f"<{header}> wants the C++ library at run time")
        if name.startswith("src/") and header in NOT_IN_A_SMALL_C_LIBRARY:
            complain(name, number, f"<{header}> is not in a small C library")


def check_length(name, text):
    lines = text.count("\n")
    most = LONGER_STILL.get(name, LONGEST_FILE)
    if name.startswith(MEASURED) and lines > most:
        complain(name, lines, f"{lines} lines, {most} at most")


def check_functions(root, names):
    measured = [name for name in names if name.startswith(MEASURED) and is_source(name)]
    tags = subprocess.run(
        ["ctags", "-f", "-", "--excmd=number", "--fields=+ne", "--kinds-C=f", "--kinds-C++=f", "--langmap=C++:+.h",
         "-L", "-"],
        check=True, capture_output=True, text=True, cwd=root, input="\n".join(measured)).stdout  # fmt: skip
    for tag in tags.splitlines():
        fields = dict(field.split(":", 1) for field in tag.split("\t")[3:] if ":" in field)
        if "line" in fields and "end" in fields:
            length = int(fields["end"]) - int(fields["line"]) + 1
            function, name = tag.split("\t")[:2]
            most = LONG_FUNCTIONS_STILL.get((name, function), LONGEST_FUNCTION)
            if length > most:
                complain(name, fields["line"], f"{function} has {length} lines, {most} at most")


def check_never(name, text):
    if not name.startswith("src/"):
        return
    for number, line in enumerate(without_comments(text).splitlines(), 1):
        for pattern, instead, allowed in NEVER:
            if re.search(pattern, line) and not name.startswith(allowed):
                complain(name, number, f"\"{re.search(pattern, line).group().strip()}\": use {instead}")


def exported_by_headers(root, names):
    exported = {}
    for name in names:
        if name.startswith("include/velkor/") and name.endswith(".h") and not name.endswith("/api.h"):
            text = without_comments((root / name).read_text())
            for match in re.finditer(r"\bVELKOR_API\b([^;{]*)", text):
                declared = re.search(r"([A-Za-z_]\w*)\s*(?:\(|\[|$)", match.group(1).split("VELKOR_FORMAT")[0].strip())
                if declared:
                    exported[declared.group(1)] = (name, text.count("\n", 0, match.start()) + 1)
    return exported


def check_exports(root, names):
    listed_lines = (root / "cmake/exports.txt").read_text().splitlines()
    listed = {line.strip() for line in listed_lines if re.match(r"[A-Za-z_]", line)}
    exported = exported_by_headers(root, names)
    for name in sorted(exported.keys() - listed):
        complain(*exported[name], f"{name} has VELKOR_API and is not in cmake/exports.txt")
    for name in sorted(listed - exported.keys()):
        complain("cmake/exports.txt", listed_lines.index(name) + 1, f"{name} has no VELKOR_API in include/velkor/")


def main():
    root = Path(sys.argv[1] if len(sys.argv) > 1 else ".")
    names = files_of(root)
    for name in names:
        if is_source(name):
            text = (root / name).read_text()
            check_includes(root, name, text)
            check_length(name, text)
            check_never(name, text)
    check_functions(root, names)
    check_exports(root, names)
    print("\n".join(complaints) if complaints else "the house is in order")
    return 1 if complaints else 0


if __name__ == "__main__":
    sys.exit(main())
