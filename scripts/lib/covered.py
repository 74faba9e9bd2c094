"""What scripts/coverage and scripts/fuzz --coverage share: what clang's counts say of src, the table
by file, and the lists of what is known never to be reached.

Such a list names its entries "FILE: LINE" as the line stands in the file, each with its reason,
indented, below it."""

import collections
import json
import os
import pathlib
import shutil
import subprocess
import sys

ROOT = pathlib.Path(__file__).resolve().parent.parent.parent
DECIDED_AT_COMPILE_TIME = ("while (true)", "if constexpr")


def llvm(tool):
    found = shutil.which(tool) or shutil.which(tool + "-14")
    if found is None:
        who = pathlib.Path(sys.argv[0]).name
        sys.exit(f"{who}: please install first (Debian's names): llvm ({tool} is missing)")
    return found


def run(*words, **more):
    return subprocess.run([str(word) for word in words], cwd=ROOT, check=True, **more)


def run_quietly(*words, **more):
    """Shows what it said on standard error only if it fails."""
    done = subprocess.run([str(word) for word in words], cwd=ROOT, check=False,
                          stderr=subprocess.PIPE, **more)
    if done.returncode != 0:
        sys.stderr.buffer.write(done.stderr)
        sys.exit(f"{pathlib.Path(sys.argv[0]).name}: failed: {pathlib.Path(words[0]).name}")
    return done


def merge(profiles, profile):
    """The counts of all runs that wrote into this folder, as one."""
    run(llvm("llvm-profdata"), "merge", "-sparse", "-o", profile, *profiles.glob("*.profraw"))


def export(built, programs, profile, *options):
    """The files of src and the functions, as llvm-cov's JSON has them."""
    objects = [word for program in programs for word in ("-object", built / program)][1:]
    said = run_quietly(llvm("llvm-cov"), "export", *objects, f"-instr-profile={profile}",
                       "-ignore-filename-regex=(^/usr/|/tests/|/client/|/fuzz/)", *options,
                       stdout=subprocess.PIPE)
    data = json.loads(said.stdout)["data"][0]
    files = [file for file in data["files"] if name_of(file["filename"]).startswith("src/")]
    return files, data.get("functions", [])


def name_of(path):
    """From the root. A compiler cache leaves "build/PRESET/../.." in a path."""
    return str(pathlib.Path(os.path.normpath(path)).relative_to(ROOT))


def source_of(file):
    return (ROOT / name_of(file["filename"])).read_text(encoding="utf-8").splitlines()


def in_folders(files, folders):
    """Those of these folders of src; of all if there are none."""
    return [file for file in files
            if not folders or name_of(file["filename"]).split("/")[1] in folders]


def table(files):
    print(f"{'':34} {'lines':>15} {'branches':>15}")
    sums = [0, 0, 0, 0]
    for file in files:
        lines, branches = file["summary"]["lines"], file["summary"]["branches"]
        row = [lines["covered"], lines["count"], branches["covered"], branches["count"]]
        sums = [a + b for a, b in zip(sums, row)]
        print(f"{name_of(file['filename']):34} {row[0]:7}/{row[1]:<7} {row[2]:7}/{row[3]:<7}")
    print(f"{'all':34} {sums[0]:7}/{sums[1]:<7} {sums[2]:7}/{sums[3]:<7}"
          f"  {100 * sums[0] / sums[1]:.2f} % of lines, {100 * sums[2] / sums[3]:.2f} % of branches")


def untaken(file):
    """(line, what of it, its text) of each branch that was never taken, over all that a template is
    made of."""
    taken = collections.defaultdict(lambda: [0, 0])
    for line, column, _, _, true_count, false_count, *_ in file["branches"]:
        taken[line, column][0] += true_count
        taken[line, column][1] += false_count
    source = source_of(file)
    for (line, _), (true_count, false_count) in sorted(taken.items()):
        text = source[line - 1].strip()
        if any(words in text for words in DECIDED_AT_COMPILE_TIME):
            continue
        if true_count == 0 and false_count == 0:
            yield line, "is never asked", text
        elif true_count == 0 or false_count == 0:
            yield line, "is never true" if true_count == 0 else "is never false", text


def never_entered(functions):
    """By file, (first line, last line) of the bodies that never ran. What a template is made of is
    one function."""
    runs = collections.Counter()
    for function in functions:
        line, column, last_line, *_ = function["regions"][0]
        runs[function["filenames"][0], line, column, last_line] += function["count"]
    by_file = collections.defaultdict(list)
    for (path, line, _, last_line), runs_of_it in sorted(runs.items()):
        if runs_of_it == 0:
            by_file[path].append((line, last_line))
    return by_file


def first_line(source, line):
    """Of the function whose body begins in this line."""
    def ends_what_came_before(text):
        text = text.strip()
        return not text or text.startswith("//") or text.endswith((";", "{", "}", ":", ">"))

    while line > 1 and not ends_what_came_before(source[line - 2]):
        line -= 1
    return line


def unreached(file, idle):
    """(line, what of it, its text): the file itself, or its functions that never ran (`idle`), and
    the branches in the others."""
    if file["summary"]["lines"]["covered"] == 0:
        yield 1, "is never reached", ""
        return
    source = source_of(file)
    told = 0  # the last line of what has been; the functions in a function are told with it
    for line, last_line in idle:
        if last_line > told:
            told = last_line
            first = first_line(source, line)
            yield first, "is never entered", source[first - 1].strip()
    for line, what, text in untaken(file):
        if not any(first <= line <= last for first, last in idle):
            yield line, what, text


def read_named(path):
    named = set()
    for text in path.read_text(encoding="utf-8").splitlines():
        if text and not text.startswith(("#", " ")):
            file, _, line = text.partition(": ")
            named.add((file, line.strip()))
    return named


def tell(found, named_in, all_of_src):
    """Prints what was found (FILE, LINE, WHAT, TEXT) and is not named, and with all of src at hand,
    each name that is no longer needed. The exit status: 1 if there is either."""
    named, needed, unnamed = read_named(named_in), set(), 0
    for file, line, what, text in found:
        needed.add((file, text))
        if (file, text) not in named:
            unnamed += 1
            print(f"{file}:{line}: {what}: {text}" if text else f"{file}: {what}")
    stale = sorted(named - needed) if all_of_src else []
    for file, line in stale:
        print(f"{name_of(named_in)} names what is taken or gone: {file}{': ' if line else ''}{line}")
    return 1 if unnamed or stale else 0
