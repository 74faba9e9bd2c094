"""The data dictionary against every kind of message that the exchange sends.

dictionary_test.py DICTIONARY RUN: RUN/messages.txt holds what a run of every kind has sent.
"""

import copy
import sys
import unittest
import xml.etree.ElementTree

from dictionary import Dictionary, read_messages

SENT = ["0", "2", "3", "4", "5", "8", "9", "A"]
TAKEN = ["0", "1", "2", "4", "5", "A", "D", "F", "G"]
SENT_BY_THE_EXCHANGE_ALONE = ["8", "9"]
# Fields whose value the exchange decides: all that is listed is really sent.
DECIDED = [20, 30, 39, 98, 102, 103, 150, 375, 382, 434, 851, 9730]


class DictionaryOfTheExchange(unittest.TestCase):
    def setUp(self):
        self.root = xml.etree.ElementTree.parse(DICTIONARY).getroot()
        self.messages = read_messages(RUN + "/messages.txt")

    def complaints(self, root):
        dictionary = Dictionary(root)
        return [text for message in self.messages for text in dictionary.complaints(message)]

    def sent(self, msg_type):
        return [dict(message) for message in self.messages if dict(message)[35] == msg_type]

    def test_has_the_messages_that_the_exchange_sends_and_takes(self):
        self.assertEqual(sorted(Dictionary(self.root).messages), sorted(set(SENT + TAKEN)))

    def test_the_run_has_every_message_that_the_exchange_sends(self):
        self.assertEqual({dict(message)[35] for message in self.messages}, set(SENT))

    def test_finds_no_fault_with_anything_sent(self):
        self.assertEqual(self.complaints(self.root), [])

    def test_a_field_that_is_always_there_is_required_and_every_other_one_is_seen(self):
        dictionary = Dictionary(self.root)
        for msg_type in SENT_BY_THE_EXCHANGE_ALONE:
            sent = self.sent(msg_type)
            for tag, required in dictionary.layout(msg_type).items():
                times = sum(tag in message for message in sent)
                self.assertEqual(times == len(sent), required, f"35={msg_type}: {tag}")
                self.assertGreater(times, 0, f"35={msg_type}: {tag}")

    def test_every_listed_value_that_the_exchange_decides_is_seen(self):
        dictionary = Dictionary(self.root)
        for tag in DECIDED:
            seen = {dict(message)[tag] for message in self.messages if tag in dict(message)}
            self.assertEqual(seen, set(dictionary.fields[tag].values), f"tag {tag}")

    # The checks above can fail.

    def test_a_missing_field_is_noticed(self):
        for msg_type in SENT_BY_THE_EXCHANGE_ALONE:
            fields = self.root.findall(f"messages/message[@msgtype='{msg_type}']/field")
            for i, field in enumerate(fields):
                damaged = copy.deepcopy(self.root)
                message = damaged.find(f"messages/message[@msgtype='{msg_type}']")
                message.remove(message.findall("field")[i])
                self.assertTrue(self.complaints(damaged), f"{msg_type} without {field.get('name')}")

    def test_a_field_that_is_required_and_does_not_always_come_is_noticed(self):
        for msg_type in SENT_BY_THE_EXCHANGE_ALONE:
            for i, field in enumerate(
                    self.root.findall(f"messages/message[@msgtype='{msg_type}']/field")):
                if field.get("required") == "Y":
                    continue
                damaged = copy.deepcopy(self.root)
                message = damaged.find(f"messages/message[@msgtype='{msg_type}']")
                message.findall("field")[i].set("required", "Y")
                self.assertTrue(self.complaints(damaged), f"{msg_type} with {field.get('name')}")

    def test_a_missing_value_is_noticed(self):
        for tag in DECIDED:
            values = self.root.findall(f"fields/field[@number='{tag}']/value")
            # A list that is empty stands for any value.
            for i in range(len(values) if len(values) > 1 else 0):
                damaged = copy.deepcopy(self.root)
                field = damaged.find(f"fields/field[@number='{tag}']")
                field.remove(field.findall("value")[i])
                self.assertTrue(self.complaints(damaged), f"{tag} without {values[i].get('enum')}")

    def test_another_order_is_noticed(self):
        damaged = copy.deepcopy(self.root)
        report = damaged.find("messages/message[@msgtype='8']")
        contra = report.find("field[@name='ContraBroker']")
        report.remove(contra)
        report.append(contra)
        self.assertTrue(self.complaints(damaged))


if __name__ == "__main__":
    DICTIONARY, RUN = sys.argv[1:]
    unittest.main(argv=sys.argv[:1])
