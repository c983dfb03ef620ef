#pragma once

#include <cstdint>
#include <new>
#include <stdexcept>

// Result conventions of the program, in one place.
//
// New code in the core: a long operation (an engine's Process, a file load, anything that may fail for a reason
// the caller cannot rule out beforehand) answers a `long`: kOk (0) on success, kFail (0x80004005) on any failure.
// An engine may add codes of its own for outcomes the caller must tell apart from a plain failure (for example 13
// where a key finds no sample of the backdrop); each such code is declared next to the engine and listed in its
// header. Running out of memory is a kFail like any other: see GuardExhaustion below.
//
// Older conventions that stay because interfaces depend on them, and where they are translated:
// - `int` 1 / 0 (done / not done) from the small image operations (DuplicateFrom, the resamplers, MergeLayers,
//   CopySourceToResult) and the codec; callers test them as booleans.
// - Command strings answer kCommandDone (0), kCommandUnparsable (-1) or kCommandRefused (the bits of kFail as an
//   int), commands/command.h; the editor's menus and the CLI's `run` read them.
// - The small BMP reader and writer answer 0, kBmpCannotOpen (2), kBmpNoRowBuffer (8), kBmpBadData (9) or kFail,
//   imaging/image.h, because the project's history files record those codes.
// - velmorando-cli exits with cli::kExitOk (0), kExitFailure (1) or kExitUsage (2), cli/cli.h; each command maps
//   the codes above to one of these and prints the reason, and the CLI's entry point turns an exhaustion into
//   kExitFailure with "not enough memory".
// - CProcessThread reports an engine's long result unchanged; a run that threw becomes kFail there.
inline constexpr long kOk = 0;
inline constexpr long kFail = 0x80004005L;

namespace vmrt {

// Allocations that failed and were turned into a failure result instead of ending the program, counted since
// start-up. A front end compares the count before and after an operation to say "not enough memory" rather
// than a vaguer reason.
uint64_t ExhaustionCount();
void NoteExhaustion();

// Runs fn (which answers a long result) and answers kFail when memory runs out on the way (bad_alloc, or a
// length_error from a container asked for more than it can ever hold), in fn itself or in
// any part of a vmpar::ParallelFor inside it (the pool hands the exception back after every part has ended).
// Anything fn wrote before that is the caller's to discard: engines write only their destination, never their
// source, so a document whose picture was the source is untouched.
template <class Fn> long GuardExhaustion(Fn&& fn)
{
    try {
        return fn();
    } catch (const std::bad_alloc&) {
        NoteExhaustion();
    } catch (const std::length_error&) {
        NoteExhaustion();
    }
    return kFail;
}

} // namespace vmrt
