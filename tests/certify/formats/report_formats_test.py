"""What quorl-certify reports for programs: its JSON by the schema, its JUnit XML by a strict parser.

report_formats_test.py SCHEMA SAMPLES: SAMPLES writes sample reports into the folder it is given.
"""

import copy
import json
import pathlib
import subprocess
import sys
import tempfile
import unittest
import xml.etree.ElementTree

import jsonschema

# None of them fits any value of the file but where `LOOSE` says so.
OF_OTHER_KINDS = [None, True, -1, 0.5, "a text of no kind", [], {}]
LOOSE = {"market": list, "unmet": list, "not_done": list, "evidence": list, "remarks": list,
         "checks": list, "faults": list, "counters": dict}
TEXTS = {"name", "path", "title", "scenario", "ended_by", "broken", "command", "ended", "folder",
         "meaning", "what"}


def fits(key, value):
    if key in TEXTS:
        return isinstance(value, str)
    return isinstance(value, LOOSE.get(key, ())) and value is not True


class Reports(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        with tempfile.TemporaryDirectory() as folder:
            subprocess.run([SAMPLES, folder], check=True, timeout=60)
            reports = sorted(pathlib.Path(folder).glob("*.json"))
            cls.reports = [json.loads(path.read_text(encoding="utf-8")) for path in reports]
            cls.junit = pathlib.Path(folder, "junit.xml").read_bytes()
        schema = json.loads(pathlib.Path(SCHEMA).read_text(encoding="utf-8"))
        jsonschema.Draft202012Validator.check_schema(schema)
        cls.schema = jsonschema.Draft202012Validator(schema)

    def assert_bad(self, report):
        self.assertTrue(list(self.schema.iter_errors(report)), json.dumps(report))

    def failed(self):
        return next(report for report in self.reports if report["status"] == "failed")

    def test_are_all_good_and_of_every_kind(self):
        self.assertEqual({report["status"] for report in self.reports},
                         {"passed", "failed", "proves nothing", "broken"})
        outcomes = {check["outcome"] for report in self.reports for check in report["checks"]}
        self.assertEqual(outcomes, {"passed", "failed", "not seen", "skipped"})
        for report in self.reports:
            self.assertEqual([error.message for error in self.schema.iter_errors(report)], [])

    def test_every_key_matters(self):
        places = [lambda report: report, lambda report: report["plan"],
                  lambda report: report["client"], lambda report: report["tap_delay_ns"],
                  lambda report: report["checks"][3],
                  lambda report: report["checks"][3]["faults"][0]]
        for find in places:
            for key in find(self.failed()):
                damaged = copy.deepcopy(self.failed())
                del find(damaged)[key]
                self.assert_bad(damaged)
                for other in OF_OTHER_KINDS:
                    if not fits(key, other):
                        damaged = copy.deepcopy(self.failed())
                        find(damaged)[key] = other
                        self.assert_bad(damaged)
            damaged = copy.deepcopy(self.failed())
            find(damaged)["more"] = 1
            self.assert_bad(damaged)

    def test_what_no_report_says(self):
        for damage in [{"status": "fine"}, {"seed": 2**64}, {"counters": {"orders": -1}},
                       {"unmet": [1]}, {"ended": "soon"}, {"began": "soon"}]:
            self.assert_bad(self.failed() | damage)
        for damage in [{"check": "feed"}, {"outcome": "passed"}, {"outcome": "not seen"},
                       {"occasions": 1.5}, {"remarks": [{}]}]:
            damaged = self.failed()
            damaged = damaged | {"checks": [damaged["checks"][3] | damage]}
            self.assert_bad(damaged)

    def test_junit_xml_is_well_formed_and_has_what_ci_reads(self):
        suites = xml.etree.ElementTree.fromstring(self.junit)
        self.assertEqual(suites.tag, "testsuites")
        self.assertEqual(len(suites), len(self.reports))
        for suite in suites:
            cases = suite.findall("testcase")
            self.assertEqual(int(suite.get("tests")), len(cases))
            for kind, tag in [("failures", "failure"), ("errors", "error"), ("skipped", "skipped")]:
                self.assertEqual(int(suite.get(kind)), len(suite.findall(f"testcase/{tag}")))
            for case in cases:
                self.assertEqual(case.get("classname"), suite.get("name"))
                self.assertTrue(case.get("name"))
                self.assertLessEqual(len(case), 1)


if __name__ == "__main__":
    SCHEMA, SAMPLES = sys.argv[1:]
    unittest.main(argv=sys.argv[:1])
