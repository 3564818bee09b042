// The process-wide "Keys" pool behind Tkeyframe::operator new.
#pragma once

namespace lumora {
class TcompactArena;
}

namespace lumora::internal {

/// The pool, or null outside the module's lifetime.
TcompactArena* keyPool();
/// Creates the pool (module start).
void startKeyPool();
/// Destroys the pool when no key is alive (module exit). Keys that a host
/// leaks keep the pool alive so that deleting them later stays safe.
void stopKeyPool();

}  // namespace lumora::internal
