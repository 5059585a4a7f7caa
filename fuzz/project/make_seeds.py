#!/usr/bin/env python3
"""Writes the small seed inputs of the project fuzzers into fuzz/seeds/fuzz_<name>/."""
import hashlib
import json
import os
import struct
import zlib

root = os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "seeds")


def envelope(doc: bytes) -> bytes:
    c = zlib.compressobj(9, zlib.DEFLATED, 31, 8)
    body = c.compress(doc) + c.flush()
    return b"CMP0" + hashlib.md5(body).digest() + body


def container(entries: dict) -> bytes:
    out = b"OV1"
    md5 = hashlib.md5()
    for name in sorted(entries):
        n = name.encode()
        d = entries[name]
        out += struct.pack(">H", len(n)) + n + struct.pack(">I", len(d)) + d
        md5.update(n)
        md5.update(d)
    return out + b"\xff\xff" + md5.digest()


def dumps(obj) -> bytes:
    return json.dumps(obj, separators=(",", ":"), ensure_ascii=False).encode()


project = {"title": "Lesson", "desc": "d", "id": "p1", "timeline_ids": ["t1"], "video_id": "-1",
           "video_path": "media/v.mp4", "userelpath": "1", "online_id": -1, "project_type": 0,
           "max_text_lw": 80, "owner": "anna", "offlineUser": ""}
segment = {"id": "s1", "desc": "", "start": "12.346", "end": "2147483647.000"}
label = {"id": "l1", "name": "Label 1", "desc": "", "color": "4278190335", "key": "65", "sortOrder": "0",
         "segments": [segment, {"id": "s2", "desc": "x", "start": "1.000", "end": "2.500"}]}
timeline = {"id": "t1", "owner": "anna", "isBlind": "0", "labels": [label],
            "utterances": [{"id": "u1", "text": "hi", "speaker": "A", "startTime": "1.000", "endTime": "2.000"}],
            "segment_groups": [{"id": "g1", "name": "G", "segids": ["s1"]}],
            "hidden_segments": ["s2"], "hidden_labels": [], "hidden_utterances": [], "hidden_uttusers": ["B"],
            "binary_data": [{"key": "k", "data": "AAEC"}]}
labelset = {"labels": [{k: v for k, v in label.items() if k != "sortOrder"}, {"id": "l2", "name": "B"}]}

# Hostile files that once cost minutes and gigabytes, or ended the program; kept as regressions.
repeated = dict(project, timeline_ids=["t1"] * 1000)
empty_segments = b'{"labels":[{"id":"l","segments":[' + b",".join([b"{}"] * 1000000) + b"]}]}"
label_bomb = b'{"labels":[' + b",".join([b'{"id":"l"}'] * 3000000) + b"]}"
length_4gib = b"OV1\x00\x0cproject.json\xff\xff\xff\xf0" + b"x" * 64

seeds = {
    "fuzz_envelope": {
        "wrapped": b"\x00" + envelope(dumps(project)),
        "wrapped_repair": b"\x01" + envelope(dumps(timeline)),
        "plain": b"\x00" + dumps(project),
        "regression-inflates": b"\x00" + envelope(b" " * (64 << 20)),
    },
    "fuzz_container": {
        "project": container({"project.json": envelope(dumps(project)), "timelines/t1.json": dumps(timeline)}),
        "with_video": container({"project.json": dumps(project), "embvideo_v.mp4": b"\x00" * 64}),
        "empty": container({}),
        "regression-length-4gib": length_4gib,
    },
    "fuzz_project_document": {"plain": dumps(project), "wrapped": envelope(dumps(project)),
                              "numbers": b'{"online_id":"42","max_text_lw":70,"userelpath":0}',
                              "regression-repeated-timeline": envelope(dumps(repeated))},
    "fuzz_timeline_document": {"plain": dumps(timeline), "wrapped": envelope(dumps(timeline)),
                               "regression-empty-segments": envelope(empty_segments)},
    "fuzz_labelset_document": {"plain": dumps(labelset), "wrapped": envelope(dumps(labelset)),
                               "regression-inflates": envelope(label_bomb)},
}

for fuzzer, files in seeds.items():
    folder = os.path.join(root, fuzzer)
    os.makedirs(folder, exist_ok=True)
    for name, data in files.items():
        with open(os.path.join(folder, name), "wb") as f:
            f.write(data)
