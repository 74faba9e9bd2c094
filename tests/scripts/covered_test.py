#!/usr/bin/env python3
"""What scripts/lib/covered.py makes of llvm-cov's counts: of a small source whose counts are made
up, each kind of thing that nobody reaches is told once, and a name for it silences it."""

import contextlib
import io
import pathlib
import sys
import tempfile
import unittest

sys.dont_write_bytecode = True
sys.path.insert(0, str(pathlib.Path(__file__).resolve().parent.parent.parent / "scripts/lib"))
import covered

SOURCE = """\
int twice(int a,
          int b) {
  if (a > b) return 2;
  return 1;
}

// A remark.
int never() {
  if (so) return [] { return 3; }();
}
while (true) wait();
"""
TWICE, NEVER, LAMBDA = (2, 5), (8, 10), (9, 9)


def branch(line, true_count, false_count, column=7):
    return [line, column, line, column + 5, true_count, false_count, 0, 0, 4]


class Covered(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        covered.ROOT = pathlib.Path(folder.name)
        (covered.ROOT / "src/base").mkdir(parents=True)
        self.path = covered.ROOT / "src/base/a.cpp"
        self.path.write_text(SOURCE, encoding="utf-8")
        self.named = covered.ROOT / "named.txt"
        self.named.write_text("# A remark.\n", encoding="utf-8")

    def file(self, branches, reached=5):
        # As a compiler cache leaves the name.
        return {"filename": f"{covered.ROOT}/build/x/../../src/base/a.cpp", "branches": branches,
                "summary": {"lines": {"covered": reached, "count": 8},
                            "branches": {"covered": 1, "count": 4}}}

    def function(self, lines, runs, column=1):
        return {"filenames": [str(self.path)], "count": runs,
                "regions": [[lines[0], column, lines[1], 2, runs, 0, 0, 0]]}

    def told(self, found, named="", all_of_src=True):
        self.named.write_text(named, encoding="utf-8")
        said = io.StringIO()
        with contextlib.redirect_stdout(said):
            status = covered.tell([("src/base/a.cpp", *entry) for entry in found], self.named,
                                  all_of_src)
        return status, said.getvalue()

    def test_a_branch_is_told_by_the_side_that_is_never_taken(self):
        text = "if (a > b) return 2;"
        for counts, what in (((0, 3), "is never true"), ((3, 0), "is never false"),
                             ((0, 0), "is never asked")):
            self.assertEqual(list(covered.untaken(self.file([branch(3, *counts)]))),
                             [(3, what, text)])
        self.assertEqual(list(covered.untaken(self.file([branch(3, 1, 1)]))), [])

    def test_what_a_template_is_made_of_is_summed_up(self):
        branches = [branch(3, 0, 3), branch(3, 2, 0)]
        functions = [self.function(NEVER, 0), self.function(NEVER, 1)]
        for order in (1, -1):
            self.assertEqual(list(covered.untaken(self.file(branches[::order]))), [])
            self.assertEqual(covered.never_entered(functions[::order]), {})

    def test_what_the_compiler_decides_is_no_branch(self):
        self.assertEqual(list(covered.untaken(self.file([branch(11, 3, 0)]))), [])

    def test_an_idle_function_is_told_once_with_all_that_is_in_it(self):
        idle = covered.never_entered([self.function(NEVER, 0), self.function(LAMBDA, 0, 18),
                                      self.function(TWICE, 4)])
        found = covered.unreached(self.file([branch(3, 0, 4), *(branch(line, 0, 0)
                                                                for line in (8, 9, 10))]),
                                  idle[str(self.path)])
        self.assertEqual(list(found), [(8, "is never entered", "int never() {"),
                                       (3, "is never true", "if (a > b) return 2;")])

    def test_an_idle_function_is_named_by_the_first_line_of_its_head(self):
        found = covered.unreached(self.file([]), [TWICE])
        self.assertEqual(list(found), [(1, "is never entered", "int twice(int a,")])

    def test_an_idle_file_is_told_as_one(self):
        found = covered.unreached(self.file([branch(3, 0, 0)], reached=0), [TWICE, NEVER])
        self.assertEqual(list(found), [(1, "is never reached", "")])

    def test_what_is_not_named_is_shown_and_fails(self):
        self.assertEqual(self.told([(3, "is never true", "if (x) {")]),
                         (1, "src/base/a.cpp:3: is never true: if (x) {\n"))
        self.assertEqual(self.told([(1, "is never reached", "")]),
                         (1, "src/base/a.cpp: is never reached\n"))

    def test_a_name_silences_what_it_names(self):
        named = "# Why.\n\nsrc/base/a.cpp: if (x) {\n    Since.\n"
        self.assertEqual(self.told([(3, "is never true", "if (x) {")], named), (0, ""))
        self.assertEqual(self.told([(1, "is never reached", "")], "src/base/a.cpp\n"), (0, ""))

    def test_a_name_that_is_no_longer_needed_fails_if_all_was_looked_at(self):
        named = "src/base/a.cpp: if (x) {\nsrc/base/b.cpp\n"
        self.assertEqual(self.told([], named, all_of_src=False), (0, ""))
        self.assertEqual(self.told([], named),
                         (1, "named.txt names what is taken or gone: src/base/a.cpp: if (x) {\n"
                             "named.txt names what is taken or gone: src/base/b.cpp\n"))


if __name__ == "__main__":
    unittest.main()
