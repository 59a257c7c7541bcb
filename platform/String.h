/* The platform's string class: a text whose copies share one representation.

   The representation always owns one writable byte beyond its capacity, the empty one that all
   empty strings share included, so a terminating zero always has room. A new string's capacity is
   its length. The reference count is safe from threads; a String object itself is not. */
#ifndef PLATFORM_STRING_H
#define PLATFORM_STRING_H

#include <stdint.h>

#ifdef __cplusplus

#define VX_API __attribute__((visibility("default")))

namespace stdComponents {

struct StringRep {
    uint32_t length;   // characters in use
    uint32_t capacity; // characters that fit; chars owns one byte more
    char *chars;       // terminated when made; whoever writes past the length ends that
    uint32_t owners;   // strings that refer here; changed atomically
};

class VX_API String {
  public:
    // A null text is an empty one. Throws std::bad_alloc when memory is exhausted.
    String(const char *text = "");
    String(const String &other);
    String &operator=(const String &other);
    ~String();

    uint32_t length() const;
    uint32_t capacity() const;
    const char *chars() const; // valid until the string is assigned, made unique or destroyed

    /* Trades the caller's reference to the representation for one that nobody else refers to, with
       the same text. With grow, its capacity is at least room + extra characters (a negative extra
       counts as 0); it never shrinks. The result is the argument itself when that is enough, and
       also when memory is exhausted: nothing has changed then. */
    static StringRep *ensureUnique(StringRep *rep, uint32_t room, bool grow, int32_t extra);

    mutable StringRep *rep; // never null
};

} // namespace stdComponents

#endif

#endif
