"""The JSON Schemas against what a run of every kind has written.

schema_test.py SCHEMAS RUN: RUN holds orders.jsonl, market.jsonl and book.json.
"""

import copy
import json
import sys
import unittest

import jsonschema

EVENTS = ["new", "fill", "cancel", "replace", "reject", "cancel_reject", "replace_reject"]
# None of them fits any value of the files but where `loose` says so.
OF_OTHER_KINDS = [None, True, -1, 0.5, 'a text of no kind, with a "quote"', [], {}]


def read_lines(name):
    with open(f"{RUN}/{name}", encoding="utf-8") as file:
        return [json.loads(line) for line in file]


def validator(name):
    with open(f"{SCHEMAS}/{name}.schema.json", encoding="utf-8") as file:
        schema = json.load(file)
    jsonschema.Draft202012Validator.check_schema(schema)
    return jsonschema.Draft202012Validator(schema)


def faults(schema, value):
    return [f"{error.message} in {json.dumps(value)}" for error in schema.iter_errors(value)]


class Schemas(unittest.TestCase):
    def assert_good(self, schema, values):
        self.assertEqual([text for value in values for text in faults(schema, value)], [])

    def assert_bad(self, schema, value):
        self.assertTrue(faults(schema, value), json.dumps(value))

    def assert_keys_matter(self, schema, value, find, optional=(), loose=None):
        """Damages each key of the object that `find` finds in the value. `loose` gives the types of
        which a key may have more values than the run shows."""
        loose = loose or {}
        for key in find(value):
            damaged = copy.deepcopy(value)
            del find(damaged)[key]
            if key not in optional:
                self.assert_bad(schema, damaged)
            for other in OF_OTHER_KINDS:
                if isinstance(other, loose.get(key, ())) and other is not True:
                    continue
                damaged = copy.deepcopy(value)
                find(damaged)[key] = other
                self.assert_bad(schema, damaged)
        damaged = copy.deepcopy(value)
        find(damaged)["more"] = 1
        self.assert_bad(schema, damaged)


class OrderEvents(Schemas):
    def setUp(self):
        self.schema = validator("order-event")
        self.events = read_lines("orders.jsonl")

    def of(self, event, **with_values):
        return next(
            e for e in self.events if e["ev"] == event and with_values.items() <= e.items())

    def test_of_a_run_are_all_good_and_of_every_kind(self):
        self.assertEqual({e["ev"] for e in self.events}, set(EVENTS))
        self.assert_good(self.schema, self.events)

    def test_every_text_is_seen(self):
        listed = set()
        for rule in self.schema.schema["allOf"]:
            listed |= set(rule["then"]["properties"].get("text", {}).get("enum", []))
        self.assertEqual(listed - {e["text"] for e in self.events}, set())

    def test_every_key_matters(self):
        held = {"symbol": str, "px": float}
        loose = {
            "new": held, "fill": held, "cancel": held, "replace": held,
            "reject": {"cl": str, "symbol": str, "px": (int, float)},
            "cancel_reject": {"cl": str}, "replace_reject": {"cl": str, "ref": str},
        }
        for event in EVENTS:
            optional = ["ref"] if event == "replace_reject" else []
            extra = {"ref": "r2"} if event == "replace_reject" else {}
            self.assert_keys_matter(self.schema, self.of(event, **extra), lambda e: e, optional,
                                    loose[event])

    def test_what_no_event_says(self):
        for event, damage in [
            ("new", {"ev": "trade"}), ("new", {"side": " "}), ("new", {"oid": 0}),
            ("new", {"qty": 0}), ("new", {"qty": 10000001}), ("new", {"leaves": 0}),
            ("new", {"cum": 100}), ("new", {"cl": "x" * 21}), ("new", {"cl": "a|b"}),
            ("new", {"cl": ""}), ("new", {"text": "cancel"}), ("new", {"ref": "a1"}),
            ("fill", {"last_qty": 0}), ("fill", {"cum": 0}), ("fill", {"ref": "a1"}),
            ("cancel", {"leaves": 1}), ("cancel", {"text": ""}), ("cancel", {"last_qty": 1}),
            ("replace", {"text": "x"}), ("replace", {"ref": ""}),
            ("reject", {"oid": 5}), ("reject", {"text": "because"}), ("reject", {"leaves": 1}),
            ("cancel_reject", {"text": "UnknownSymbol"}), ("cancel_reject", {"side": "B"}),
            ("cancel_reject", {"ref": "c2"}), ("cancel_reject", {"symbol": "AAPL"}),
            ("replace_reject", {"px": 185}), ("replace_reject", {"oid": -1}),
            ("replace_reject", {"t": 1.5}), ("replace_reject", {"t": 2**64}),
        ]:
            self.assert_bad(self.schema, self.of(event) | damage)


class MarketTruth(Schemas):
    def setUp(self):
        self.schema = validator("market-truth")
        self.lines = read_lines("market.jsonl")
        self.book = next(line for line in self.lines if line.get("bid") and line.get("ask"))
        self.mark = next(line for line in self.lines if line.get("mark"))

    def test_of_a_run_is_all_good(self):
        self.assert_good(self.schema, self.lines)
        self.assertIn("", [line.get("mark") for line in self.lines])
        self.assertIn([], [line.get("bid") for line in self.lines])

    def test_every_key_matters(self):
        self.assert_keys_matter(self.schema, self.book, lambda line: line,
                                loose={"symbol": str, "bid": list, "ask": list})
        self.assert_keys_matter(self.schema, self.mark, lambda line: line)

    def test_what_no_line_says(self):
        price, size = self.book["bid"][0]
        for levels in [[[price]], [[price, 0]], [[price, size, 1]], [["190.0000", size]],
                       [[price, -size]], [[price, size + 0.5]], [[price, size]] * 11]:
            self.assert_bad(self.schema, self.book | {"bid": levels})
            self.assert_bad(self.schema, self.book | {"ask": levels})
        for damage in [{"secid": 0}, {"seq": 0}, {"mark": "both"}]:
            self.assert_bad(self.schema, self.book | damage)
        self.assert_bad(self.schema, self.mark | {"mark": "two words"})


class BookFile(Schemas):
    def setUp(self):
        self.schema = validator("book")
        self.files = read_lines("book.json")

    def test_of_a_run_is_good_and_tells_of_trades(self):
        self.assertEqual(len(self.files), 1)
        self.assert_good(self.schema, self.files)
        books = self.files[0]["symbols"].values()
        self.assertTrue(any(book["last"] > 0 and book["volume"] > 0 for book in books))
        self.assertTrue(any(len(book["bid"]) == 5 for book in books))

    def test_every_key_matters(self):
        book = self.files[0]
        self.assert_keys_matter(self.schema, book, lambda file: file, loose={"symbols": dict})
        self.assert_keys_matter(self.schema, book, lambda file: file["symbols"]["MSFT"],
                                loose={"bid": list, "ask": list, "last": (int, float)})

    def test_what_no_file_says(self):
        for levels in [[[190]], [[190, 0]], [[190, 100, 1]], [["190", 100]], [[190, 100]] * 6]:
            for side in ["bid", "ask"]:
                damaged = copy.deepcopy(self.files[0])
                damaged["symbols"]["MSFT"][side] = levels
                self.assert_bad(self.schema, damaged)


if __name__ == "__main__":
    SCHEMAS, RUN = sys.argv[1:]
    unittest.main(argv=sys.argv[:1])
