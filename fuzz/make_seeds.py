#!/usr/bin/env python3
"""Writes the seed corpus of lumora_edit_fuzzer into fuzz/corpus/edit/.

Each seed is a short edit sequence in the fuzzer's byte format (see
fuzz/edit_fuzzer.cpp: the decoders there and the encoders here must agree):
a few keys on one to three curves, then one operation under test, alone and
inside a recording that is undone and redone. Run it again after changing the
byte format; the names stay stable, so the corpus diff shows what changed.

    fuzz/make_seeds.py [output directory]
"""
import pathlib
import sys

# Operation numbers, in the order of Top in edit_fuzzer.cpp.
OPS = """add insert_time insert_key insert_owned block_add_template block_add_ref
block_add_ptr block_tangent block_tan_type remove remove_all set_value set_time
set_tan_type drag_tangent infinity weighted rotation block_add_mode no_update
mark_dirty evaluate make_handle handle_copy_or_drop curve_copy delay suspend
begin end undo redo drop_action generate_deltas siblings select move_picks drag
move_keyframe breakdown move_edit query locks adjust_tangent tangent_edits""".split()
OP = {name: i for i, name in enumerate(OPS)}


def flatten(items):
    out = []
    for item in items:
        out += flatten(item) if isinstance(item, (list, tuple)) else [item]
    return out


def i8(v):
    return v & 0xFF


def seconds(eighths):
    """A grid time: eighths of a second."""
    return [10, i8(eighths)]


def time(eighths):
    return [0] + seconds(eighths)


def value(quarters):
    return [6, i8(quarters)]


def component(sixteenths):
    return [4, i8(sixteenths)]


def key(eighths, quarters, tin=9, tout=9):
    return time(eighths) + value(quarters) + [tin, tout, 1]


class Seq:
    def __init__(self, curves):
        """curves: list of (is_float, weighted)."""
        self.curves = len(curves)
        self.data = [len(curves) - 1]
        for is_float, weighted in curves:
            self.data.append((1 if is_float else 0) | (2 if weighted else 0))

    def step(self, curve, op, *args):
        self.data += [curve, OP[op]]
        self.data += flatten(args)
        # The checks after each step sample every curve at two times.
        for _ in range(self.curves):
            self.data += seconds(3) + seconds(-20)
        return self

    def keys(self, curve, count=4):
        for i in range(count):
            self.step(curve, "add", key(8 * i, (i * 7) % 5 * 4), 0, 0)
        return self

    def bytes(self):
        return bytes(self.data)


def args_for(op):
    """Typical arguments of each operation, a few variants each."""
    return {
        "add": [[key(12, 3), 0, 0], [key(8, -4, 3, 2), 1, 1]],
        "insert_time": [[time(12), 0, 0], [time(40), 1, 0]],
        "insert_key": [[key(4, 9), 1, 0], [key(20, -2, 2, 5), 0, 0]],
        "insert_owned": [[key(6, 1), 0], [key(8, 1), 0]],
        "block_add_template": [[3, 1] + seconds(50) + seconds(54) + seconds(60) +
                               value(1) + value(2) + value(3) + [9, 9, 0, 0] + key(0, 0)],
        "block_add_ref": [[2, 1, 1, 0, 0, 10, 0, 0, 0x40, 0, 1, 0, 0, 0x80, 0] +
                          value(4) + value(5) + [3, 3, 0, 0]],
        "block_add_ptr": [[2, 1] + seconds(80) + [0] + seconds(88) + [0] + value(1) + value(2) +
                          [9, 2, 1, 0]],
        "block_tangent": [[1, 2, 1, 1, 2] + value(3) + value(-5), [0, 3, 0, 0, 1] + value(8)],
        "block_tan_type": [[0, 3, 0, 3, 1, 2, 9], [1, 2, 1, 2, 12, 0]],
        "remove": [[1, 0, 0] + key(0, 0), [0, 1, 0] + key(0, 7), [255, 0, 0] + key(0, 0)],
        "remove_all": [[1, 1], [1, 0]],
        "set_value": [[1] + value(9) + [0] + component(0), [2] + value(-3) + [1] + component(8)],
        "set_time": [[1] + time(10), [2] + time(-30), [0] + time(17)],
        "set_tan_type": [[1, 1, 1], [2, 2, 0], [1, 12, 0]],
        "drag_tangent": [[1] + component(16) + component(20) + [0],
                         [2] + component(4) + component(-40) + [1]],
        "infinity": [[3, 0], [4, 1], [5, 0], [1, 1]],
        "weighted": [[1], [0]],
        "rotation": [[3], [2], [7]],
        "block_add_mode": [[1], [0]],
        "no_update": [[5, 2], [2, 7], [0, 9]],
        "mark_dirty": [[]],
        "evaluate": [[1] + seconds(5) + time(13), [0, 0] + [0] + [6, 1]],
        "make_handle": [[0, 1, 1], [1, 0] + seconds(8), [2, 1] + seconds(16), [3, 1, 2]],
        "handle_copy_or_drop": [[1, 0], [3, 0, 1], [7, 0]],
        "curve_copy": [[0, 0], [0, 1], [0, 2]],
        "delay": [[1]],
        "suspend": [[1]],
        "begin": [[]],
        "end": [[]],
        "undo": [[]],
        "redo": [[]],
        "drop_action": [[1], [0]],
        "generate_deltas": [[]],
        "siblings": [[1], [0]],
        # picks: a count, then per pick a byte of flags (0x30: a key of the next
        # curve, 0xC0: made void) and a key index.
        "select": [[2, 1, 1, 1, 2, 1, 2, 3, 1], [1, 0xC1, 1, 2, 1, 0, 4, 2, 0]],
        "move_picks": [[2, 1, 1, 1, 2] + time(4) + [1, 0, 0, 0],
                       [1, 1, 1] + time(-3) + [1, 1, 0, 0],
                       [1, 1, 2] + time(20) + [1, 2, 0, 0],
                       [2, 1, 1, 1, 2] + time(6) + [1, 3, 0, 2]],
        "drag": [[2, 1, 2, 0] + time(1) + [1, 0, 0, 0, 5],
                 [1, 1, 0] + time(-1) + [1, 1, 0, 0, 4],
                 [2, 0, 3, 0] + time(2) + [1, 2, 0, 0, 6]],
        "move_keyframe": [[1] + time(30) + value(3) + [0, 0, 0],
                          [2] + time(-9) + value(1) + [2, 0, 1],
                          [1] + time(0) + value(5) + [0, 0, 2]],
        "breakdown": [[1, 1], [2, 1]],
        "move_edit": [[2, 1, 1, 1, 2, 0] + time(3) + value(1) + time(9) + value(2) + [0, 0, 2, 1],
                      [1, 1, 1, 3] + time(12) + value(2) + [2, 0],
                      [2, 1, 1, 1, 2, 4] + time(3) + value(1) + time(9) + value(2) + [0, 0, 3, 9,
                                                                                      1, 1]],
        "adjust_tangent": [[1, 4, 1] + component(2) + component(4) + component(16) + component(0) +
                           component(16) + component(0) + component(16) + component(16) +
                           component(16) + [0, 0],
                           [1, 6, 1] + component(-3) + component(2) + component(16) +
                           component(0) + component(16) + component(0) + component(16) +
                           component(16) + component(16) + [1, 0]],
        "tangent_edits": [[2, 6, 1, 6, 2, w, 0, 1, 1, 0, 1, 3] + component(2) + [1, 1] +
                          component(1) + [1] + component(4) + [1] + component(2) +
                          component(3) + component(2) + component(16) + component(16) +
                          component(16) for w in range(6)],
        "locks": [[0, 1, 1], [3, 0, 2, 1, 1, 1, 2]],
        "query": [time(5) + value(2) + [0, 1, 7, 1], time(-30) + value(-8) + [1, 0, 6, 0]],
    }[op]


# The operations whose further variants (other argument shapes, other kinds
# of curve) are worth a seed of their own.
VARIED = {"add", "insert_time", "insert_key", "remove", "set_time", "set_tan_type",
          "drag_tangent", "infinity", "make_handle", "handle_copy_or_drop", "curve_copy",
          "set_value", "no_update", "move_picks", "drag", "move_keyframe", "move_edit",
          "tangent_edits"}


def seeds():
    kinds = [(True, False), (False, False), (True, True), (False, True)]
    for op in OPS:
        for v, args in enumerate(args_for(op)):
            kind = kinds[v % len(kinds)]
            if v > 0 and op not in VARIED:
                continue
            # Alone, after a few keys.
            if v == 0:
                s = Seq([kind]).keys(0)
                s.step(0, op, *[args])
                yield f"{op}-{v}", s
            # Recorded, undone, redone, undone again; a handle watches key 1.
            s = Seq([kind, kinds[(v + 1) % len(kinds)]]).keys(0).keys(1, 2)
            s.step(0, "make_handle", 0, 1, 1)
            s.step(0, "begin")
            s.step(0, op, *[args])
            s.step(0, "end").step(0, "undo").step(0, "redo").step(0, "undo")
            yield f"{op}-{v}-recorded", s
    # Interleavings a host produces.
    s = Seq([(True, False), (False, True), (True, True)]).keys(0).keys(1).keys(2)
    s.step(0, "delay", 1).step(1, "begin").step(1, "remove", 1, 0, 0, *key(0, 0))
    s.step(1, "end").step(0, "delay", 0).step(1, "undo").step(2, "curve_copy", 0, 2)
    s.step(1, "redo").step(1, "undo")
    yield "host-delayed-undo", s
    s = Seq([(True, False)]).keys(0, 6)
    s.step(0, "begin").step(0, "block_add_mode", 1).step(0, "remove", 2, 0, 0, *key(0, 0))
    s.step(0, "block_add_mode", 0).step(0, "set_value", 1, *value(5), 0, *component(0))
    s.step(0, "end").step(0, "undo").step(0, "drop_action", 0)
    yield "host-silent-edits-recorded", s
    # Rotation siblings: edits for all three curves, quaternion-wide settings.
    s = Seq([(True, False), (True, True), (False, False)]).keys(0).keys(1, 3).keys(2, 2)
    s.step(0, "siblings", 1).step(1, "rotation", 3).step(1, "begin").step(0, "begin")
    s.step(1, "add", key(20, 6), 0, 1).step(1, "infinity", 3, 1)
    s.step(1, "remove", 0, 0, 1, *key(0, 0)).step(1, "end").step(0, "end")
    s.step(1, "undo").step(0, "undo").step(1, "redo").step(2, "insert_time", time(4), 0, 1)
    yield "host-rotation-siblings", s


def main():
    out = pathlib.Path(sys.argv[1] if len(sys.argv) > 1 else
                       pathlib.Path(__file__).parent / "corpus" / "edit")
    out.mkdir(parents=True, exist_ok=True)
    count = 0
    for name, seq in seeds():
        (out / f"seed-{name}").write_bytes(seq.bytes())
        count += 1
    print(f"wrote {count} seeds to {out}")


if __name__ == "__main__":
    main()
