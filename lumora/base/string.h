// A reference-counted, copy-on-write byte string.
//
//   Tstring name("keyTangent");
//   Tstring copy = name;          // shares the characters, no allocation
//   copy.catenate(" -global");    // copy now owns its own characters
//   std::puts(name.c_str());      // still "keyTangent"
//
// Copies share one block of characters until one of them is changed; the
// block's count is atomic, so copies of a string may be made and destroyed on
// different threads at the same time. One Tstring object itself is not to be
// changed from two threads at once.
//
// Lengths count bytes; the characters may include NUL bytes when a length is
// given. A null text reads as the empty string. Operations that would need
// more than 0xFFFFFFFE characters, or memory that cannot be had, are refused:
// they return false and leave the string as it was (a constructor leaves it
// empty).
#pragma once

#include "lumora/base/export.h"

namespace lumora {

class LUMORA_API Tstring {
 public:
  // Construction ------------------------------------------------------------

  /// The empty string (allocates nothing).
  Tstring() = default;
  /// A copy of the NUL-terminated `text`; null gives the empty string.
  Tstring(const char* text);  // NOLINT: implicit by design, like a literal
  /// A copy of the first `length` bytes of `text`; null gives the empty string.
  Tstring(const char* text, unsigned length);
  /// Shares `other`'s characters.
  Tstring(const Tstring& other);
  /// Takes `other`'s characters; `other` becomes empty.
  Tstring(Tstring&& other) noexcept;
  ~Tstring();

  Tstring& operator=(const Tstring& other);
  Tstring& operator=(Tstring&& other) noexcept;

  // Changing ----------------------------------------------------------------

  /// Replaces the contents by the first `length` bytes of `text` (null: the
  /// empty string). `text` may point into this string. False when refused.
  bool set(const char* text, unsigned length);
  /// Replaces the contents by the NUL-terminated `text` (null: empty).
  bool set(const char* text);
  /// Appends the first `length` bytes of `text`; null appends nothing. `text`
  /// may point into this string. False when refused.
  bool catenate(const char* text, unsigned length);
  /// Appends the NUL-terminated `text`; null appends nothing.
  bool catenate(const char* text);
  /// Appends `other`, which may be this string itself.
  bool catenate(const Tstring& other);
  /// Makes the string empty and lets go of its characters.
  void clear();

  // Access ------------------------------------------------------------------

  /// The characters, NUL-terminated; never null. Valid until this string is
  /// next changed or destroyed.
  const char* c_str() const;
  unsigned length() const;
  bool empty() const { return length() == 0; }

  /// Byte-wise equality of the contents.
  bool operator==(const Tstring& other) const;
  /// Equality with a NUL-terminated text; null equals the empty string.
  bool operator==(const char* text) const;

 private:
  struct Rep;

  // Points this string at a fresh block holding `prefix` followed by `suffix`
  // with room for `capacity` characters; false (and nothing changed) when the
  // block cannot be had.
  bool rebuild(const char* prefix, unsigned prefixLength, const char* suffix, unsigned suffixLength,
               unsigned capacity);
  bool isUnshared() const;

  Rep* fRep = nullptr;  // null for the empty string
};

}  // namespace lumora
