#!/usr/bin/env python3
"""Writes the token archive another device's program would write, with nothing of this library:
the standard keyed-archive layout (Python's plistlib), an array of two OTPTokens.

  token_archive.py FILE
"""
import plistlib
import sys


def main(path):
    objects = ["$null"]

    def add(obj):
        objects.append(obj)
        return plistlib.UID(len(objects) - 1)

    root = add(None)  # the root first, as other archivers write it
    token_class = add({"$classname": "OTPToken", "$classes": ["OTPToken", "NSObject"]})
    tokens = [
        add({"$class": token_class, "type": add("totp"), "issuer": add("Foreign"), "account": add("a@example.org"),
             "secret": b"12345678901234567890", "algorithm": add("SHA256"), "digits": 8, "period": 60,
             "counter": 0}),
        add({"$class": token_class, "type": add("hotp"), "issuer": add("Élan"), "account": add("b@example.org"),
             "secret": b"\x00\xff\x10", "algorithm": add("SHA1"), "digits": 6, "period": 30, "counter": 42}),
    ]
    array_class = add({"$classname": "NSArray", "$classes": ["NSArray", "NSObject"]})
    objects[root.data] = {"$class": array_class, "NS.objects": tokens}
    archive = {"$archiver": "NSKeyedArchiver", "$version": 100000, "$top": {"root": root}, "$objects": objects}
    with open(path, "wb") as f:
        plistlib.dump(archive, f, fmt=plistlib.FMT_BINARY, sort_keys=False)


if __name__ == "__main__":
    main(sys.argv[1])
