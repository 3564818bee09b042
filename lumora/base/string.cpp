#include "lumora/base/string.h"

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <new>

namespace lumora {

namespace {

constexpr unsigned kMaxLength = 0xFFFFFFFEu;

// The length of a NUL-terminated text; null counts as empty.
std::size_t measure(const char* text) {
  return text == nullptr ? 0 : std::strlen(text);
}

// Room to reserve when a string of `used` characters must grow to `needed`:
// doubling keeps repeated catenation linear overall.
unsigned grownCapacity(unsigned used, unsigned needed) {
  const std::uint64_t doubled = 2ull * used;
  const std::uint64_t wanted = std::max<std::uint64_t>(needed, doubled);
  return static_cast<unsigned>(std::min<std::uint64_t>(wanted, kMaxLength));
}

}  // namespace

// The shared block: this header followed by fCapacity + 1 characters.
struct Tstring::Rep {
  std::atomic<unsigned> fRefs;
  unsigned fLength;
  unsigned fCapacity;  // characters that fit, not counting the closing NUL

  char* chars() { return reinterpret_cast<char*>(this + 1); }

  // A block with one reference and room for `capacity` characters, holding
  // the empty text; null when the memory cannot be had.
  static Rep* create(unsigned capacity) {
    const std::uint64_t bytes = sizeof(Rep) + std::uint64_t{capacity} + 1;
    if constexpr (sizeof(std::size_t) < sizeof(std::uint64_t)) {
      if (bytes > SIZE_MAX) return nullptr;
    }
    void* raw = ::operator new(static_cast<std::size_t>(bytes), std::nothrow);
    if (raw == nullptr) return nullptr;
    Rep* rep = new (raw) Rep{{1u}, 0u, capacity};
    rep->chars()[0] = '\0';
    return rep;
  }

  void retain() { fRefs.fetch_add(1, std::memory_order_relaxed); }

  // Acquire-release so that the last owner sees every other owner's reads
  // finished before it frees the block.
  void release() {
    if (fRefs.fetch_sub(1, std::memory_order_acq_rel) != 1) return;
    this->~Rep();
    ::operator delete(static_cast<void*>(this));
  }
};

Tstring::Tstring(const char* text) {
  const std::size_t length = measure(text);
  if (length <= kMaxLength) set(text, static_cast<unsigned>(length));
}

Tstring::Tstring(const char* text, unsigned length) {
  set(text, length);
}

Tstring::Tstring(const Tstring& other) : fRep(other.fRep) {
  if (fRep != nullptr) fRep->retain();
}

Tstring::Tstring(Tstring&& other) noexcept : fRep(other.fRep) {
  other.fRep = nullptr;
}

Tstring::~Tstring() {
  clear();
}

Tstring& Tstring::operator=(const Tstring& other) {
  // Taking the new reference before dropping the old one makes
  // self-assignment harmless.
  Rep* rep = other.fRep;
  if (rep != nullptr) rep->retain();
  clear();
  fRep = rep;
  return *this;
}

Tstring& Tstring::operator=(Tstring&& other) noexcept {
  if (this == &other) return *this;
  clear();
  fRep = other.fRep;
  other.fRep = nullptr;
  return *this;
}

bool Tstring::set(const char* text, unsigned length) {
  if (text == nullptr || length == 0) {
    clear();
    return true;
  }
  if (length > kMaxLength) return false;
  if (isUnshared() && fRep->fCapacity >= length) {
    // memmove: `text` may lie inside the block.
    std::memmove(fRep->chars(), text, length);
    fRep->chars()[length] = '\0';
    fRep->fLength = length;
    return true;
  }
  return rebuild(text, length, nullptr, 0, length);
}

bool Tstring::set(const char* text) {
  const std::size_t length = measure(text);
  if (length > kMaxLength) return false;
  return set(text, static_cast<unsigned>(length));
}

bool Tstring::catenate(const char* text, unsigned length) {
  if (text == nullptr || length == 0) return true;
  const unsigned used = this->length();
  if (length > kMaxLength - used) return false;
  const unsigned total = used + length;
  if (isUnshared() && fRep->fCapacity >= total) {
    // The source is either outside the block or inside its first `used`
    // characters, so it cannot overlap the destination; memmove all the same.
    std::memmove(fRep->chars() + used, text, length);
    fRep->chars()[total] = '\0';
    fRep->fLength = total;
    return true;
  }
  return rebuild(c_str(), used, text, length, grownCapacity(used, total));
}

bool Tstring::catenate(const char* text) {
  const std::size_t length = measure(text);
  if (length > kMaxLength) return false;
  return catenate(text, static_cast<unsigned>(length));
}

bool Tstring::catenate(const Tstring& other) {
  // Reading other's length and characters before any change makes
  // catenating a string to itself work: the old block lives until rebuild
  // has copied from it.
  return catenate(other.c_str(), other.length());
}

void Tstring::clear() {
  if (fRep == nullptr) return;
  fRep->release();
  fRep = nullptr;
}

const char* Tstring::c_str() const {
  return fRep == nullptr ? "" : fRep->chars();
}

unsigned Tstring::length() const {
  return fRep == nullptr ? 0 : fRep->fLength;
}

bool Tstring::operator==(const Tstring& other) const {
  if (fRep == other.fRep) return true;
  const unsigned n = length();
  if (n != other.length()) return false;
  return std::memcmp(c_str(), other.c_str(), n) == 0;
}

bool Tstring::operator==(const char* text) const {
  const std::size_t n = measure(text);
  if (n != length()) return false;
  return n == 0 || std::memcmp(c_str(), text, n) == 0;
}

bool Tstring::rebuild(const char* prefix, unsigned prefixLength, const char* suffix,
                      unsigned suffixLength, unsigned capacity) {
  Rep* rep = Rep::create(capacity);
  if (rep == nullptr) return false;
  char* out = rep->chars();
  if (prefixLength > 0) std::memcpy(out, prefix, prefixLength);
  if (suffixLength > 0) std::memcpy(out + prefixLength, suffix, suffixLength);
  rep->fLength = prefixLength + suffixLength;
  out[rep->fLength] = '\0';
  // Only now may the old block go: the sources may lie inside it.
  clear();
  fRep = rep;
  return true;
}

bool Tstring::isUnshared() const {
  // Acquire pairs with the release in Rep::release: once other owners have
  // let go, their reads of the block are finished before we write to it.
  return fRep != nullptr && fRep->fRefs.load(std::memory_order_acquire) == 1;
}

}  // namespace lumora
