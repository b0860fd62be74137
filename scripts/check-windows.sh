#!/usr/bin/env bash
# Compiles every source file of brivoncore, brivonui and the executable for Windows with mingw-w64
# (syntax only: nothing is linked), so that the *_win.cpp files and the Windows branches of shared
# files never rot unseen. Each file gets the defines, include folders and generated headers (moc,
# uic) of its real build; the Windows file of each *_posix.cpp pair takes that file's place.
#   bash scripts/check-windows.sh [build folder]     (default: build, which must have been built)
set -euo pipefail
cd "$(dirname "$0")/.."

BUILD_DIR="${1:-${BRIVON_BUILD_DIR:-build}}"
CXX_WIN="${BRIVON_MINGW_CXX:-x86_64-w64-mingw32-g++-posix}"
if ! command -v "$CXX_WIN" >/dev/null 2>&1; then
    echo "check-windows: $CXX_WIN not found: run scripts/setup.sh (package g++-mingw-w64-x86-64-posix)" >&2
    exit 1
fi
if [ ! -f "$BUILD_DIR/compile_commands.json" ]; then
    echo "check-windows: $BUILD_DIR/compile_commands.json missing: build first (scripts/build.sh)" >&2
    exit 1
fi

work="$(mktemp -d)"
trap 'rm -rf "$work"' EXIT

# One job file per source: the compiler's arguments, NUL-separated.
python3 - "$BUILD_DIR" "$PWD" "$work" <<'EOF'
import json, os, shlex, subprocess, sys

build, source_root, work = sys.argv[1:4]
targets = ("brivoncore", "brivonui", "beamcrafter")
entries = json.load(open(os.path.join(build, "compile_commands.json")))

def target_of(entry):
    output = entry.get("output")
    if not output:
        args = entry["arguments"] if "arguments" in entry else shlex.split(entry["command"])
        output = args[args.index("-o") + 1] if "-o" in args else ""
    for target in targets:
        if "/%s.dir/" % target in "/" + output:
            return target
    return None

jobs = {}
flags_of_target = {}
for entry in entries:
    target = target_of(entry)
    if not target:
        continue
    path = os.path.normpath(os.path.join(entry["directory"], entry["file"]))
    # Compiled resources are data only; the rest (moc output included) is checked.
    if os.path.basename(path).startswith("qrc_"):
        continue
    args = entry["arguments"] if "arguments" in entry else shlex.split(entry["command"])
    flags = []
    i = 1
    while i < len(args):
        arg = args[i]
        if arg in ("-isystem", "-I", "-D", "-include"):
            flags += [arg, args[i + 1]]
            i += 2
            continue
        if arg.startswith(("-D", "-I", "-std=", "-W")) and not arg.startswith("-Wl,"):
            flags.append(arg)
        i += 1
    flags_of_target.setdefault(target, flags)
    if path.endswith("_win.cpp"):
        continue
    if path.endswith("_posix.cpp"):
        win = path[: -len("_posix.cpp")] + "_win.cpp"
        if not os.path.exists(win):
            sys.exit("check-windows: %s has no Windows counterpart %s" % (path, win))
        path = win
    jobs[path] = flags

# A Windows file whose POSIX partner is missing is still checked, with the flags of its library.
tracked = subprocess.run(["git", "-C", source_root, "ls-files", "*_win.cpp"], check=True,
                         capture_output=True, text=True).stdout.split()
for rel in tracked:
    if rel.split("/")[0] in ("plugins", "tests", "tools", "bench", "fuzz"):
        continue
    path = os.path.join(source_root, rel)
    if path not in jobs:
        library = "brivonui" if rel.startswith("ui/") else "brivoncore"
        jobs[path] = flags_of_target.get(library) or next(iter(flags_of_target.values()))

if not jobs:
    sys.exit("check-windows: no sources of %s found in compile_commands.json" % ", ".join(targets))
for n, (path, flags) in enumerate(sorted(jobs.items())):
    with open(os.path.join(work, "%04d.job" % n), "wb") as job:
        job.write(b"\0".join(a.encode() for a in [path] + flags) + b"\0")
EOF

check_one() {
    local job="$1" cxx="$2"
    local args=()
    while IFS= read -r -d '' arg; do args+=("$arg"); done <"$job"
    local file="${args[0]}"
    if "$cxx" -fsyntax-only -DUNICODE -D_UNICODE "${args[@]:1}" "$file" >"$job.log" 2>&1; then
        echo "ok      ${file#"$PWD"/}"
    else
        echo "FAILED  ${file#"$PWD"/}"
        return 1
    fi
}
export -f check_one

total=$(find "$work" -name '*.job' | wc -l)
echo "check-windows: $total files with $("$CXX_WIN" -dumpversion | head -1) ($CXX_WIN)"
status=0
find "$work" -name '*.job' -print0 | sort -z |
    xargs -0 -P "$(nproc)" -I{} bash -c 'check_one "$1" "$2"' _ {} "$CXX_WIN" || status=1

if [ $status -ne 0 ]; then
    for log in "$work"/*.job.log; do
        if grep -q "error" "$log"; then
            cat "$log"
        fi
    done
    echo "check-windows: FAILED" >&2
    exit 1
fi
echo "check-windows: all $total files compile for Windows"
