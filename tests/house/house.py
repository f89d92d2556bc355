"""The house rules that a compiler doesn't keep: floors, foreign includes, sizes, leftovers.

check(root) gives the list of findings of the tree at root, each a line "file:line: what is wrong".
"""
import os
import re
import sys
from pathlib import Path

MAX_LINES = 600
CONTRACT_FLOORS = ["base", "identity", "job", "message", "device", "stream", "recording"]

# Room -> the rooms right below it. What lies below those lies below it too.
FLOORS = {f"contract/{room}": [f"contract/{lower}" for lower in CONTRACT_FLOORS[:index]]
          for index, room in enumerate(CONTRACT_FLOORS)}
FLOORS |= {
    "platform": ["contract/base"],
    "control": ["contract/recording", "platform"],
    "settings": ["control"],
    "streaming": ["settings"],
    "logging": ["streaming"],
    "replay": ["logging"],
    "merge": ["replay"],
    "discovery": ["control"],
    "transfer": ["settings"],
    "array": ["control", "streaming", "transfer"],
}
# The one source that looks up: it knows the array controller that the base controller doesn't.
LOOKS_UP = {"NvxQtCommon/control/NvxDeviceControllerFactory.cpp": {"array"}}

SOURCE_SUFFIXES = {".h", ".cpp", ".py", ".cmake", ".sh"}
TEXT_SUFFIXES = SOURCE_SUFFIXES | {".md", ".txt", ".in", ".json", ".yml", ".supp", ".svg", ""}
SKIPPED_NAMES = {".git", "build", "out", "recordings", "__pycache__", "corpus"}

INCLUDE = re.compile(r'^\s*#\s*include\s*([<"])([^>"]+)[>"]')
QT_INCLUDE = re.compile(r"^(Qt?[A-Z]\w*(/\w+)?|q[a-z]+\.h)$")
SYSTEM_INCLUDE = re.compile(
    r"^(sys|net|netinet|arpa|linux|netpacket)/|^(unistd|fcntl|poll|pthread|termios|netdb|ifaddrs|dirent|dlfcn|pwd|grp"
    r"|sched|spawn|syslog|pty|ftw|glob|semaphore|aio|strings|windows|winsock2?|ws2tcpip|iphlpapi|icmpapi|io|direct"
    r"|process)\.h$", re.IGNORECASE)
# Put together from pieces, so that this file doesn't find itself.
UNFINISHED = re.compile(r"\b(TO" r"DO|FIX" r"ME|X" r"XX|HA" r"CK|T" r"BD)\b|(?i:\bnot (yet )?imple" r"mented\b)"
                        r"|(?i:\bplace" r"holder\b)")
MACHINE_PATH = re.compile(r"(?<![\w.$}>)])/(ho" r"me|ro" r"ot|wo" r"rk|m" r"nt|Use" r"rs|workspace)/[\w.]"
                          r"|(?i:\b[a-z]:\\+users\\)|/t" r"mp/wt\b")
BARE_WAIT = re.compile(r"\bQTest::q(Wait|Sleep)\s*\(|\bQThread::(m|u)?sleep\s*\(|\bsleep_for\s*\(|(?<![\w.:>])u?sleep\s*\(")
TEST_NAME = re.compile(r"nvx_add_test\(\s*(\w+)")


def below(room, floors=FLOORS):
    """All rooms that lie below a room."""
    found = set()
    waiting = list(floors[room])
    while waiting:
        lower = waiting.pop()
        if lower not in found:
            found.add(lower)
            waiting += floors[lower]
    return found


def room_of(path):
    """The room of a path like NvxQtCommon/control/X.h; None where there is no such room."""
    parts = path.split("/")
    name = "/".join(parts[1:3]) if parts[1:2] == ["contract"] else parts[1] if len(parts) > 2 else ""
    return name if name in FLOORS else None


def check_include(path, kind, name):
    """What is wrong with one include line of a library file, or None."""
    room = room_of(path)
    if kind == "<" or name.endswith(".moc") or re.fullmatch(r"(ui|moc|qrc)_\w+\.(h|cpp)", name):
        if room.startswith("contract/") and QT_INCLUDE.match(name):
            return f"Qt in the contract room: {name}"
        if room != "platform" and SYSTEM_INCLUDE.match(name):
            return f"operating system include outside of platform/: {name}"
        if name.startswith("NvxQtCommon/"):
            return f"an own header is included in quotation marks: {name}"
        return None
    if name == "xxhash.h":
        return None
    target = room_of(name) if name.startswith("NvxQtCommon/") else None
    if target is None:
        return f'include lines have the form "NvxQtCommon/<room>/X.h": {name}'
    if target == room or target in below(room) or target in LOOKS_UP.get(path, ()):
        return None
    return f"{room} looks up to {target}: {name}"


def check_library_file(path, lines):
    if room_of(path) is None:
        yield 1, "this file is in no room of the library"
        return
    for number, line in enumerate(lines, 1):
        include = INCLUDE.match(line)
        finding = check_include(path, *include.groups()) if include else None
        if finding:
            yield number, finding
        if "Q_OBJECT" in line and not line.lstrip().startswith(("Q_OBJECT", "//")):
            yield number, "Q_OBJECT does not stand first on its line, so moc would pass over it"
    if path.endswith(".h") and "#pragma once" not in lines:
        yield 1, "a header without #pragma once"


def check_text(path, lines):
    if Path(path).suffix in SOURCE_SUFFIXES and len(lines) > MAX_LINES:
        yield len(lines), f"more than {MAX_LINES} lines"
    for number, line in enumerate(lines, 1):
        if UNFINISHED.search(line):
            yield number, "a mark of unfinished work"
        if MACHINE_PATH.search(line):
            yield number, "a path of one machine"
        if path.startswith("tests/") and path.endswith((".cpp", ".h")) and BARE_WAIT.search(line):
            yield number, "a test that sleeps instead of waiting for something"


def check_tests_are_run(root, files):
    """A test source that its folder doesn't register would never run, and nobody would notice."""
    for path in files:
        name = Path(path).name
        if path.startswith("tests/") and name.startswith("tst_") and name.endswith((".cpp", ".py")):
            registry = root / Path(path).parent / "CMakeLists.txt"
            text = re.sub("#.*", "", registry.read_text()) if registry.exists() else ""
            if name not in text and Path(name).stem not in TEST_NAME.findall(text):
                yield path, 1, "this test is registered nowhere"


def check_named_tests(root, files):
    """Documents name the test behind a promise: it has to be there."""
    sources = {Path(path).stem: root / path for path in files
               if path.startswith("tests/") and Path(path).name.startswith("tst_")}
    for path in files:
        if not path.endswith(".md"):
            continue
        for number, line in enumerate((root / path).read_text(encoding="utf-8").splitlines(), 1):
            for test, function in re.findall(r"`(tst_\w+)(?:::(\w+))?`", line):
                source = sources.get(test)
                if source is None or function and not re.search(rf"\b{function}\(\)", source.read_text()):
                    yield path, number, f"no test {test}{'::' + function if function else ''}"


def all_files(root):
    for folder, folders, names in os.walk(root):
        folders[:] = sorted(f for f in folders if f not in SKIPPED_NAMES and not f.startswith("build-"))
        for name in sorted(set(names) - SKIPPED_NAMES):
            path = Path(folder, name)
            if path.suffix in TEXT_SUFFIXES and path.is_file():
                yield path.relative_to(root).as_posix()


def check(root):
    root = Path(root)
    findings = []
    files = list(all_files(root))
    for path in files:
        try:
            lines = (root / path).read_text(encoding="utf-8").splitlines()
        except UnicodeDecodeError:
            continue
        checks = [check_text(path, lines)]
        if path.startswith("NvxQtCommon/") and path.endswith((".h", ".cpp")):
            checks.append(check_library_file(path, lines))
        findings += [f"{path}:{number}: {text}" for found in checks for number, text in found]
    for check_tree in (check_tests_are_run, check_named_tests):
        findings += [f"{path}:{number}: {text}" for path, number, text in check_tree(root, files)]
    return findings


if __name__ == "__main__":
    found = check(sys.argv[1] if len(sys.argv) > 1 else ".")
    print("\n".join(found) if found else "The house is in order.")
    sys.exit(1 if found else 0)
