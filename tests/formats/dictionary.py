"""A data dictionary of the QuickFIX family, and what it says of a message.

dictionary.py DICTIONARY FILE: says what is wrong with the messages of the file, one a line; the exit
status is 1 if there is anything, or nothing at all.
"""

import re
import sys
import xml.etree.ElementTree

SOH = "\x01"

# The value types that the dictionary uses.
FORMS = {
    "STRING": r".+",
    "CHAR": r".",
    "MULTIPLEVALUESTRING": r"\S+( \S+)*",
    "INT": r"-?\d+",
    "QTY": r"\d+(\.\d+)?",
    "PRICE": r"-?\d+(\.\d+)?",
    "BOOLEAN": r"[YN]",
    "UTCTIMESTAMP": r"\d{8}-\d\d:\d\d:\d\d(\.\d{3})?",
}


class Field:
    def __init__(self, element):
        self.tag = int(element.get("number"))
        self.name = element.get("name")
        self.type = element.get("type")
        self.values = [value.get("enum") for value in element.findall("value")]


class Dictionary:
    """Raises ValueError if the file contradicts itself."""

    def __init__(self, root):
        fields = [Field(element) for element in root.findall("fields/field")]
        self.fields = {field.tag: field for field in fields}
        by_name = {field.name: field for field in fields}
        if not len(self.fields) == len(by_name) == len(fields):
            raise ValueError("a tag or a name is there twice")
        for field in fields:
            if field.type not in FORMS:
                raise ValueError(f"{field.name} is of an unknown type")
            if len(set(field.values)) != len(field.values):
                raise ValueError(f"a value of {field.name} is there twice")

        def presence(element):
            """{tag: required}, in the order of the file."""
            tags = {}
            for child in element:
                if child.tag != "field" or child.get("name") not in by_name:
                    raise ValueError(f"{element.get('name')}: no field {child.get('name')}")
                tag = by_name[child.get("name")].tag
                if tag in tags or child.get("required") not in ("Y", "N"):
                    raise ValueError(f"{element.get('name')}: {child.get('name')}")
                tags[tag] = child.get("required") == "Y"
            return tags

        self.version = f"{root.get('type')}.{root.get('major')}.{root.get('minor')}"
        self.header = presence(root.find("header"))
        self.trailer = presence(root.find("trailer"))
        self.messages = {m.get("msgtype"): presence(m) for m in root.findall("messages/message")}

    def layout(self, msg_type):
        """All fields of a message: {tag: required}."""
        return self.header | self.messages[msg_type] | self.trailer

    def complaints(self, message):
        """What an engine with every validation on would say against the message, which is a list of
        (tag, value). The order of the fields is the exchange's own: others may choose theirs."""
        msg_type = dict(message).get(35)
        if msg_type not in self.messages:
            return [f"there is no message {msg_type}"]
        found = []
        layout = self.layout(msg_type)
        tags = [tag for tag, _ in message]
        if dict(message).get(8) != self.version:
            found.append("another version of FIX")
        if len(set(tags)) != len(tags):
            found.append("a field comes twice")
        for tag, value in message:
            found += self.complaints_of_field(tag, value, layout)
        found += [f"{tag} is missing" for tag in layout if layout[tag] and tag not in tags]
        order = [tag for tag in layout if tag in tags]
        if dict(message)[49] == "IEXG" and order != [tag for tag in tags if tag in layout]:
            found.append(f"the order is {tags}, not {order}")
        return [f"35={msg_type}: {text}" for text in found]

    def complaints_of_field(self, tag, value, layout):
        if tag not in layout:
            return [f"{tag} does not belong there"]
        field = self.fields[tag]
        if not re.fullmatch(FORMS[field.type], value):
            return [f"{tag}={value} is no {field.type}"]
        parts = value.split(" ") if field.type == "MULTIPLEVALUESTRING" else [value]
        if field.values and not set(parts) <= set(field.values):
            return [f"{tag}={value} is not listed"]
        return []


def read_dictionary(path):
    return Dictionary(xml.etree.ElementTree.parse(path).getroot())


def parse_message(line):
    """The (tag, value) pairs of "8=FIX.4.2<SOH>9=...<SOH>10=123<SOH>"."""
    pairs = [field.split("=", 1) for field in line.split(SOH)[:-1]]
    return [(int(tag), value) for tag, value in pairs]


def read_messages(path):
    """A message in each line; what an engine's log puts ahead of it is skipped."""
    with open(path, encoding="utf-8", newline="\n") as file:
        return [parse_message(line[line.index("8=FIX"):]) for line in file]


def main(dictionary_path, messages_path):
    dictionary = read_dictionary(dictionary_path)
    messages = read_messages(messages_path)
    complaints = [text for message in messages for text in dictionary.complaints(message)]
    print("\n".join(complaints + [f"{len(messages)} messages"]))
    return 1 if complaints or not messages else 0


if __name__ == "__main__":
    sys.exit(main(*sys.argv[1:]))
