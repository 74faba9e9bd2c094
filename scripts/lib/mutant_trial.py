"""Trying a mutant: an overlay of the tree, the pieces of the programs that are made of it, and the
programs, one after the other, until one fails."""

import collections
import hashlib
import json
import math
import os
import pathlib
import re
import resource
import shlex
import shutil
import signal
import subprocess
import threading

import mutations

KILLED, TIMED_OUT, SURVIVED = "killed", "timed out", "survived"
NOT_COMPILED = "did not compile"

# In this order, after the unit programs of the folder.
ALWAYS = [["unit_allocations"],
          ["stories_inside"],
          ["lives", "--lives=25", "--gtest_filter=WholeExchange.*:Lives.whatever*"],
          ["recorded_day"]]
BESIDE = {"base": [["unit_clocks"]]}
MEMORY = 3 << 30  # bytes of addresses
FILE_SIZE = 256 << 20
COMPILE_S = 120  # processor time; and five times as long while others work for it
SLEEP_S = 30  # no unit program sleeps for more than some of them
LOOK_S = 0.25


class Stopped(Exception):
    """By Ctrl-C or SIGTERM."""


def is_asleep(pid):
    """Each of its threads."""
    try:
        threads = list(pathlib.Path(f"/proc/{pid}/task").glob("*/stat"))
        return all(thread.read_text().rpartition(") ")[2][:1] not in "RD" for thread in threads)
    except OSError:  # a thread has ended
        return False


class Processes:
    """What this run has started, each the leader of a process group."""

    def __init__(self):
        self.lock, self.running, self.stopped = threading.Lock(), set(), False

    def run(self, words, cwd, cpu_s, idle_s, scratch=None):
        """The exit status, negative for a signal; None if it took too long: in processor time, or
        asleep. What waits for a processor is neither, as the machine may be busy."""
        limits = ["prlimit", f"--cpu={cpu_s}:{cpu_s + 1}", f"--as={MEMORY}", "--core=0",
                  f"--fsize={FILE_SIZE}", "--"]
        with self.lock:
            if self.stopped:
                raise Stopped
            process = subprocess.Popen([*limits, *words], cwd=cwd, stdin=subprocess.DEVNULL,
                                       stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL,
                                       env={**os.environ, "TMPDIR": str(scratch or cwd),
                                            "GTEST_BRIEF": "1", "GTEST_FAIL_FAST": "1"},
                                       start_new_session=True)
            self.running.add(process)
        try:
            while idle_s > 0:
                try:
                    status = process.wait(LOOK_S)
                    return None if status in (-signal.SIGXCPU, -signal.SIGKILL) else status
                except subprocess.TimeoutExpired:
                    idle_s -= LOOK_S if is_asleep(process.pid) else 0
            return None
        finally:
            self.end(process)

    def end(self, process):
        with self.lock:
            self.running.discard(process)
        try:
            os.killpg(process.pid, signal.SIGKILL)
        except ProcessLookupError:
            pass
        process.wait()
        if self.stopped:
            raise Stopped

    def stop(self):
        with self.lock:
            self.stopped = True
            for process in self.running:
                os.killpg(process.pid, signal.SIGKILL)


class Build:
    """The unchanged programs, and how each piece of them is made."""

    def __init__(self, root, built):
        self.root, self.built = root, built
        self.command(["cmake", "--preset", "mutants"])
        targets = self.ask("ninja", "-t", "targets", "all")
        self.there = set(re.findall(r"^([\w-]+): CXX_EXECUTABLE_LINKER", targets, re.MULTILINE))
        self.alone = set()  # groups of sources that do not compile as one
        self.linker = ["-fuse-ld=lld"] if shutil.which("ld.lld") else []

    def command(self, words):
        subprocess.run(words, cwd=self.root, check=True, stdout=subprocess.DEVNULL)

    def ask(self, *words):
        return subprocess.run(words, cwd=self.built, check=True, text=True,
                              stdout=subprocess.PIPE).stdout

    def make(self, folders):
        """Builds what the mutants of these folders meet, and reads how."""
        programs = sorted({words[0] for folder in folders for words in self.programs_of(folder)})
        self.command(["cmake", "--build", "--preset", "mutants", "--target", *programs])
        self.compiles = {}  # an object file to its command and its source
        for entry in json.loads((self.built / "compile_commands.json").read_text()):
            words = shlex.split(entry["command"])
            self.compiles[words[words.index("-o") + 1]] = (words, entry["file"])
        self.links = {program: self.link_of(program) for program in programs}
        self.users = collections.defaultdict(list)  # a source or header to its objects
        made = None
        for line in self.ask("ninja", "-t", "deps").splitlines():
            if line and not line.startswith(" "):
                made = line.partition(":")[0]
            elif line and made in self.compiles:
                self.users[line.strip()].append(made)

    def programs_of(self, folder):
        wanted = [["unit_" + folder], *BESIDE.get(folder, []), *ALWAYS]
        return [words for words in wanted if words[0] in self.there]

    def link_of(self, program):
        command = self.ask("ninja", "-t", "commands", program).splitlines()[-1]
        part = next(part for part in command.split(" && ") if f" -o {program} " in part)
        return shlex.split(part)

    def objects_of(self, program, file):
        """Those of the program that are made of the file."""
        link = set(self.links[program])
        names = {os.path.basename(word) for word in link}
        return [made for made in self.users[str(self.root / file)]
                if made in link or f"lib{made.partition('.dir/')[0].rsplit('/', 1)[-1]}.a" in names]


class Limits:
    """How long each program may run, in seconds of processor time and of sleep: some times what the
    unchanged one takes."""

    def __init__(self, build, processes, folders, scratch):
        self.of = {}
        for words in {tuple(words) for folder in folders for words in build.programs_of(folder)}:
            scratch.mkdir(parents=True, exist_ok=True)
            used = resource.getrusage(resource.RUSAGE_CHILDREN)
            status = processes.run([str(build.built / words[0]), *words[1:]], scratch, 600, 600)
            now = resource.getrusage(resource.RUSAGE_CHILDREN)
            if status != 0:
                raise SystemExit(f"mutants: {words[0]} fails before anything is changed")
            cpu_s = now.ru_utime + now.ru_stime - used.ru_utime - used.ru_stime
            self.of[words[0]] = math.ceil(4 * cpu_s) + 3, SLEEP_S


class Trial:
    """One mutant: its overlay of the tree, and what is compiled of it."""

    def __init__(self, build, processes, limits, mutant, jobs_folder):
        self.build, self.processes, self.limits, self.mutant = build, processes, limits, mutant
        self.folder = jobs_folder / hashlib.sha256(repr(mutant).encode()).hexdigest()[:16]
        self.made = {}  # an object of the build to ours
        self.count = 0

    def outcome(self):
        self.folder.mkdir(parents=True)
        try:
            text = (self.build.root / self.mutant.file).read_text(encoding="utf-8")
            overlay = self.folder / self.mutant.file
            overlay.parent.mkdir(parents=True)
            overlay.write_text(mutations.apply(self.mutant, text), encoding="utf-8")
            return self.run_all()
        finally:
            shutil.rmtree(self.folder, ignore_errors=True)

    def run_all(self):
        for words in self.build.programs_of(self.mutant.file.split("/")[1]):
            objects = self.build.objects_of(words[0], self.mutant.file)
            if not objects:
                continue
            if not self.compile_all(objects) or not self.link(words[0], objects):
                return NOT_COMPILED, ""
            scratch = self.folder / "scratch"
            shutil.rmtree(scratch, ignore_errors=True)
            scratch.mkdir()
            status = self.processes.run([str(self.folder / words[0]), *words[1:]], scratch,
                                        *self.limits.of[words[0]])
            (self.folder / words[0]).unlink()
            if status != 0:
                return TIMED_OUT if status is None else KILLED, words[0]
        return SURVIVED, ""

    def compile_all(self, objects):
        """A header has many users. Those of one folder are compiled as one where that works."""
        groups = collections.defaultdict(list)
        for made in objects:
            if made not in self.made:
                groups[os.path.dirname(made)].append(made)
        for name, group in groups.items():
            together = len(group) > 1 and (name, len(group)) not in self.build.alone
            if together and self.compile(group):
                continue
            if not all(self.compile([made]) for made in group):
                return False
            if together:
                self.build.alone.add((name, len(group)))
        return True

    def compile(self, group):
        words, source = self.build.compiles[group[0]]
        sources = [self.overlaid(self.build.compiles[made][1]) for made in group]
        if len(sources) > 1:
            together = self.new_file(".cpp")
            together.write_text("".join(f'#include "{path}"\n' for path in sources))
            sources = [together]
        if self.mutant.file.endswith(".cpp") and source != str(self.build.root / self.mutant.file):
            raise SystemExit(f"mutants: {self.mutant.file} is compiled as a piece of {source}")
        ours = self.new_file(".o")
        words = [str(ours) if word == group[0] else str(sources[0]) if word == source else word
                 for word in words if word != "-Werror"]
        at = next((at for at, word in enumerate(words) if word.startswith("-I")), 1)
        words[at:at] = [f"-I{self.folder / 'src'}", "-w"]
        if self.processes.run(words, self.build.built, COMPILE_S, 5 * COMPILE_S, self.folder) != 0:
            return False
        self.made.update((made, ours) for made in group)
        return True

    def overlaid(self, source):
        own = str(self.build.root / self.mutant.file)
        return self.folder / self.mutant.file if source == own else pathlib.Path(source)

    def new_file(self, ending):
        self.count += 1
        return self.folder / f"made{self.count}{ending}"

    def link(self, program, objects):
        """Ours stand for the program's own, and before archives, whose own are not taken then."""
        ours = dict.fromkeys(str(self.made[made]) for made in objects)
        replaced = [word for word in self.build.links[program] if word not in self.made]
        replaced = [str(self.folder / program) if word == program else word for word in replaced]
        at = next((at for at, word in enumerate(replaced) if word.endswith(".a")), len(replaced))
        words = replaced[1:at] if replaced[0] == ":" else replaced[:at]
        return self.processes.run([*words, *ours, *replaced[at:], *self.build.linker],
                                  self.build.built, COMPILE_S, 5 * COMPILE_S, self.folder) == 0
