#!/usr/bin/env bash
# End-to-end benchmark: mendo against the tools people use for the same job,
# on the same deterministic input, in one run.
#
# Every case first checks that mendo's output equals each anchor's output
# (mendo's pipe output carries one extra byte 0xFF behind the input, which is
# stripped for the comparison), so a fast wrong answer fails the benchmark.
# Timing is hyperfine's: several runs, medians. Results go to
# bench/results/ as a table of medians and of ratios to the fastest anchor.
#
# Usage: bench/run.sh [size-in-MB]   (default 200)
set -euo pipefail
cd "$(dirname "$0")/.."

SIZE_MB=${1:-200}
RUNS=${RUNS:-5}
MENDO=$PWD/build/mendo
DATA=$PWD/bench/data
RESULTS=$PWD/bench/results
LOG=$DATA/access-${SIZE_MB}mb.log

if ! command -v hyperfine >/dev/null || ! command -v sd >/dev/null || ! command -v rg >/dev/null \
    || [ ! -x /usr/bin/time ]; then
    if [ "$(id -u)" -eq 0 ]; then
        DEBIAN_FRONTEND=noninteractive apt-get install -y -qq hyperfine sd ripgrep time >/dev/null
    else
        echo "bench: wants hyperfine, sd, ripgrep and time: apt-get install -y hyperfine sd ripgrep time" >&2
        exit 1
    fi
fi
[ -x "$MENDO" ] || { echo "bench: build first (make)" >&2; exit 1; }

mkdir -p "$DATA" "$RESULTS"
if [ ! -s "$LOG" ]; then
    echo "Generating $LOG ..."
    python3 bench/gen_log.py "$SIZE_MB" > "$LOG.tmp" && mv "$LOG.tmp" "$LOG"
fi

# Fails the benchmark unless the command's output equals the reference.
check() {
    local name=$1 reference=$2 command=$3 stripFF=$4
    local got
    got=$(mktemp)
    bash -c "$command" > "$got"
    if [ "$stripFF" = yes ]; then
        truncate -s -1 "$got"
    fi
    if ! cmp -s "$got" "$reference"; then
        echo "bench: WRONG OUTPUT from $name: $command" >&2
        rm -f "$got"
        exit 1
    fi
    rm -f "$got"
}

# case name, then pairs of (name, command); the first pair is mendo.
run_case() {
    local case=$1
    shift
    local reference
    reference=$(mktemp)
    bash -c "$4" > "$reference"  # the first anchor's output is the reference
    local args=()
    local names=()
    while [ $# -gt 0 ]; do
        local name=$1 command=$2
        shift 2
        case $name in
            mendo) check "$name" "$reference" "$command" yes ;;
            cat) ;;  # the floor: copying the bytes, no replacing
            *) check "$name" "$reference" "$command" no ;;
        esac
        names+=("$name")
        args+=(--command-name "$name" "$command")
    done
    rm -f "$reference"
    echo "== $case"
    hyperfine --style basic --warmup 1 --runs "$RUNS" --output null \
        --export-json "$RESULTS/$case.json" "${args[@]}" >/dev/null
}

run_case plain-pipe \
    mendo "cat '$LOG' | '$MENDO' -f:ERROR -t:FAILURE" \
    sed "cat '$LOG' | sed 's/ERROR/FAILURE/g'" \
    perl "cat '$LOG' | perl -pe 's/ERROR/FAILURE/g'" \
    sd "cat '$LOG' | sd -s ERROR FAILURE" \
    rg "cat '$LOG' | rg --no-config --passthru -F ERROR -r FAILURE" \
    cat "cat '$LOG' | cat"

run_case caseblind-pipe \
    mendo "cat '$LOG' | '$MENDO' -fic:error -t:FAILURE" \
    sed "cat '$LOG' | sed 's/[Ee][Rr][Rr][Oo][Rr]/FAILURE/g'" \
    perl "cat '$LOG' | perl -pe 's/error/FAILURE/gi'" \
    sd "cat '$LOG' | sd -f i error FAILURE" \
    rg "cat '$LOG' | rg --no-config --passthru -i -F error -r FAILURE"

# ---- regular expressions ----------------------------------------------------
# Through a pipe, against sed -E, perl and ripgrep's pass-through replace.
# The patterns are chosen so that leftmost-longest and leftmost-first agree.
IP='([0-9]+)\.([0-9]+)\.([0-9]+)\.([0-9]+)'
run_case regex-ip-reverse \
    mendo "cat '$LOG' | '$MENDO' '-r:$IP' '-t:\\4.\\3.\\2.\\1'" \
    sed "cat '$LOG' | sed -E 's/$IP/\\4.\\3.\\2.\\1/g'" \
    perl "cat '$LOG' | perl -pe 's/$IP/\$4.\$3.\$2.\$1/g'" \
    rg "cat '$LOG' | rg --no-config --passthru '$IP' -r '\$4.\$3.\$2.\$1'"

run_case regex-rare-alternation \
    mendo "cat '$LOG' | '$MENDO' '-r:(POST|DELETE) /login' '-t:\\1 /signin'" \
    sed "cat '$LOG' | sed -E 's#(POST|DELETE) /login#\\1 /signin#g'" \
    perl "cat '$LOG' | perl -pe 's#(POST|DELETE) /login#\$1 /signin#g'" \
    rg "cat '$LOG' | rg --no-config --passthru '(POST|DELETE) /login' -r '\$1 /signin'"

run_case regex-line-anchored \
    mendo "cat '$LOG' | '$MENDO' '-r:^2026-11-0([1-9])' '-t:2026-11-1\\1'" \
    sed "cat '$LOG' | sed -E 's/^2026-11-0([1-9])/2026-11-1\\1/'" \
    perl "cat '$LOG' | perl -pe 's/^2026-11-0([1-9])/2026-11-1\$1/'" \
    rg "cat '$LOG' | rg --no-config --passthru '^2026-11-0([1-9])' -r '2026-11-1\$1'"

# ripgrep ends with status 1 when nothing matched, which is no failure here.
run_case regex-never-matches \
    mendo "cat '$LOG' | '$MENDO' '-r:qqq[0-9]+zzz' '-t:x'" \
    sed "cat '$LOG' | sed -E 's/qqq[0-9]+zzz/x/g'" \
    perl "cat '$LOG' | perl -pe 's/qqq[0-9]+zzz/x/g'" \
    rg "cat '$LOG' | rg --no-config --passthru 'qqq[0-9]+zzz' -r 'x' || [ \$? -eq 1 ]"

# Peak memory of the regex replace on the log, in each strategy, against the
# input's size (GNU time's maximum resident set, in kB): the memory expand
# strategy rewriting a file (which needs the whole result before the write)
# and printing it (-stdout, which prints it while it is produced), and the
# in-place strategy.
peak_kb() { /usr/bin/time -f %M "$@" 2>&1 >/dev/null | tail -1; }
INPUT_KB=$(( $(stat -L -c %s "$LOG") / 1024 ))
ratio() { python3 -c "print('%.2f' % ($1 / $INPUT_KB))"; }
mkdir -p "$DATA/work"
cp "$LOG" "$DATA/work/memory.log"
FILE_KB=$(peak_kb "$MENDO" "$DATA/work/memory.log" "-r:$IP" '-t:\4.\3.\2.\1')
rm -f "$DATA/work/memory.log"
STDOUT_KB=$(peak_kb "$MENDO" "$LOG" "-r:$IP" '-t:\4.\3.\2.\1' -stdout)
INPLACE_KB=$(peak_kb "$MENDO" "$LOG" "-r:$IP" '-t:\4.\3.\2.\1' -stdout -noexp)
cat > "$RESULTS/memory.md" <<MEM
| strategy | peak resident (MB) | ratio to the input |
|---|---|---|
| memory expand, rewriting the file | $(( FILE_KB / 1024 )) | $(ratio "$FILE_KB") |
| memory expand, -stdout | $(( STDOUT_KB / 1024 )) | $(ratio "$STDOUT_KB") |
| in place (-noexp) | $(( INPLACE_KB / 1024 )) | $(ratio "$INPLACE_KB") |
MEM
echo "== memory"
cat "$RESULTS/memory.md"

# ---- files ------------------------------------------------------------------
# In-place rewrite of the whole log with a same-length replacement, so that
# every run rewrites the file; each tool works on its own copy, restored
# before every run by hyperfine's --prepare.
WORK=$DATA/work
rm -rf "$WORK"
mkdir -p "$WORK"
for tool in mendo sd sed; do cp "$LOG" "$WORK/$tool.log"; done
echo "== inplace-file"
for tool in mendo sd sed; do cp "$LOG" "$WORK/check-$tool.log"; done
"$MENDO" "$WORK/check-mendo.log" -f:ERROR -t:WARNING >/dev/null
sd -s ERROR WARNING "$WORK/check-sd.log"
sed -i 's/ERROR/WARNING/g' "$WORK/check-sed.log"
cmp -s "$WORK/check-mendo.log" "$WORK/check-sd.log" && cmp -s "$WORK/check-mendo.log" "$WORK/check-sed.log" \
    || { echo "bench: WRONG OUTPUT in the in-place case" >&2; exit 1; }
rm -f "$WORK"/check-*.log
hyperfine --style basic --warmup 1 --runs "$RUNS" \
    --export-json "$RESULTS/inplace-file.json" \
    --command-name mendo "'$MENDO' '$WORK/mendo.log' -f:ERROR -t:ERROR" \
    --command-name sd "sd -s ERROR ERROR '$WORK/sd.log'" \
    --command-name sed "sed -i 's/ERROR/ERROR/g' '$WORK/sed.log'" >/dev/null

# 20,000 small files in 200 folders, one match each, walked with -s.
TREE=$DATA/tree
if [ ! -d "$TREE" ]; then
    python3 - "$TREE" <<'PY'
import os, sys
root = sys.argv[1]
for d in range(200):
    folder = os.path.join(root, "d%03d" % d)
    os.makedirs(folder)
    for f in range(100):
        with open(os.path.join(folder, "f%03d.txt" % f), "w") as out:
            out.write("line one\nan ERROR here\nline three\n" * 1)
PY
fi
echo "== small-files"
hyperfine --style basic --warmup 1 --runs "$RUNS" \
    --export-json "$RESULTS/small-files.json" \
    --command-name mendo "cd '$TREE' && '$MENDO' '*.txt' -s -f:ERROR -t:ERROR" \
    --command-name sd "find '$TREE' -name '*.txt' -print0 | xargs -0 sd -s ERROR ERROR" \
    --command-name sed "find '$TREE' -name '*.txt' -print0 | xargs -0 sed -i 's/ERROR/ERROR/g'" >/dev/null

python3 - "$RESULTS" <<'EOF'
import json, os, sys
results = sys.argv[1]
lines = ["| case | tool | median (s) | ratio to fastest anchor |", "|---|---|---|---|"]
for case in ("plain-pipe", "caseblind-pipe", "inplace-file", "small-files", "regex-ip-reverse",
             "regex-rare-alternation", "regex-line-anchored", "regex-never-matches"):
    with open(os.path.join(results, case + ".json")) as f:
        data = json.load(f)["results"]
    medians = {r["command"]: r["median"] for r in data}
    anchors = [t for t in medians if t not in ("mendo", "cat")]
    fastest = min(medians[t] for t in anchors)
    for tool, median in medians.items():
        lines.append("| %s | %s | %.3f | %.2f |" % (case, tool, median, median / fastest))
table = "\n".join(lines)
print(table)
with open(os.path.join(results, "memory.md")) as f:
    memory = f.read()
print()
print(memory)
with open(os.path.join(results, "summary.md"), "w") as f:
    f.write(table + "\n\n" + memory)
EOF
