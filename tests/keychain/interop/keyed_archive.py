#!/usr/bin/env python3
"""Keyed archives seen from another tool: Python's plistlib.

  keyed_archive.py describe FILE   checks FILE's layout and prints its object graph as JSON,
                                   each class object as {"$class": name, ...fields}
  keyed_archive.py write FILE      writes an archive in the standard layout, the way another
                                   archiver would, for the library to read
"""
import datetime
import json
import plistlib
import sys


def describe(path):
    with open(path, "rb") as f:
        data = f.read()
    assert data.startswith(b"bplist00"), "not a binary property list"
    archive = plistlib.loads(data)
    assert archive["$archiver"] == "NSKeyedArchiver", archive["$archiver"]
    assert archive["$version"] == 100000, archive["$version"]
    objects = archive["$objects"]
    assert objects[0] == "$null", objects[0]
    top = archive["$top"]
    assert all(isinstance(v, plistlib.UID) for v in top.values()), top

    def resolve(ref, seen=()):
        assert isinstance(ref, plistlib.UID), ref
        assert ref.data < len(objects), ref
        assert ref.data not in seen, "cycle"
        if ref.data == 0:
            return None
        obj = objects[ref.data]
        if isinstance(obj, (str, int, float, bool)):
            return obj
        if isinstance(obj, bytes):
            return {"$data": obj.hex()}
        assert isinstance(obj, dict), type(obj)
        cls = objects[obj["$class"].data]
        assert cls["$classes"][0] == cls["$classname"] and cls["$classes"][-1] == "NSObject", cls
        out = {"$class": cls["$classname"]}
        for key, value in obj.items():
            if key == "$class":
                continue
            if isinstance(value, plistlib.UID):
                out[key] = resolve(value, seen + (ref.data,))
            elif isinstance(value, list):
                out[key] = [resolve(v, seen + (ref.data,)) for v in value]
            elif isinstance(value, bytes):
                out[key] = {"$data": value.hex()}
            else:
                out[key] = value
        return out

    print(json.dumps({key: resolve(value) for key, value in top.items()}, sort_keys=True))


def write(path):
    objects = ["$null"]

    def add(obj):
        objects.append(obj)
        return plistlib.UID(len(objects) - 1)

    classes = {}

    def cls(name, *supers):
        if name not in classes:
            classes[name] = add({"$classname": name, "$classes": [name, *supers, "NSObject"]})
        return classes[name]

    root = add(None)  # filled below, so that the root comes first like other archivers write it
    token = add({
        "$class": cls("OTPToken"),
        "type": add("hotp"), "issuer": add("Python"), "account": add("py@example.org"),
        "secret": b"12345678901234567890", "algorithm": add("SHA512"),
        "digits": 8, "period": 30, "counter": 7,
    })
    dictionary = add({
        "$class": cls("NSMutableDictionary", "NSDictionary"),
        "NS.keys": [add("when"), add("nothing"), add("text"), add("blob"), add("set")],
        "NS.objects": [
            add({"$class": cls("NSDate"), "NS.time": 1.5}),
            add({"$class": cls("NSNull")}),
            add({"$class": cls("NSMutableString", "NSString"), "NS.string": "mutable ✓"}),
            add({"$class": cls("NSMutableData", "NSData"), "NS.data": b"\x00\x01"}),
            add({"$class": cls("NSSet"), "NS.objects": [add(3)]}),
        ],
    })
    objects[root.data] = {
        "$class": cls("NSMutableArray", "NSArray"),
        "NS.objects": [add("plain"), add(42), add(2.5), add(True), add(b"raw"), dictionary, token],
    }
    archive = {"$archiver": "NSKeyedArchiver", "$version": 100000, "$top": {"root": root}, "$objects": objects}
    with open(path, "wb") as f:
        plistlib.dump(archive, f, fmt=plistlib.FMT_BINARY, sort_keys=False)


if __name__ == "__main__":
    {"describe": describe, "write": write}[sys.argv[1]](sys.argv[2])
