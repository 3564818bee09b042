// Sequences of curve edits decoded from bytes, checked after every step.
//
// runEditSequence is the body of the libFuzzer target lumora_edit_fuzzer and
// of the replay driver that CTest runs over the seed corpus:
//
//   runEditSequence(bytes.data(), bytes.size());   // aborts on a violation
//
// Every byte string is a valid sequence: the first bytes choose one to three
// curves (float or tick, weighted or not), each following step takes an
// operation byte and whatever arguments it needs, and missing bytes read as
// zero. After each step the curves must satisfy the invariants of
// testing/curve_invariants.h, registered key handles must be valid exactly
// while their key object is in their curve, and every finished recording
// must undo and redo to the bitwise snapshots taken when it began and ended.
// A violation prints the steps taken so far and aborts, so a crash report
// says which operation failed.
//
// Setting the environment variable LUMORA_FUZZ_TRACE prints each step as it
// runs.
#pragma once

#include <cstddef>
#include <cstdint>

namespace lumora::fuzz {

/// Runs the edit sequence that `data` encodes; aborts when a check fails.
void runEditSequence(const std::uint8_t* data, std::size_t size);

}  // namespace lumora::fuzz
