#include "String.h"

#include <cstdlib>
#include <cstring>
#include <new>

namespace stdComponents {

// The empty representation counts itself as an owner, so it is never released nor unique.
static char emptyChars[1];
static StringRep emptyRep = {0, 0, emptyChars, 1};

static StringRep *share(StringRep *rep) {
    __atomic_add_fetch(&rep->owners, 1, __ATOMIC_RELAXED);
    return rep;
}

// The last owner must see all that the others did before it frees the block.
static void release(StringRep *rep) {
    if (__atomic_sub_fetch(&rep->owners, 1, __ATOMIC_ACQ_REL) != 0)
        return;
    free(rep->chars);
    free(rep);
}

// Null when memory is exhausted or capacity + 1 cannot be held.
static StringRep *makeRep(const char *text, uint32_t length, uint64_t capacity) {
    if (capacity >= UINT32_MAX)
        return nullptr;
    StringRep *rep = static_cast<StringRep *>(malloc(sizeof(StringRep)));
    char *chars = static_cast<char *>(malloc(static_cast<size_t>(capacity) + 1));
    if (rep == nullptr || chars == nullptr) {
        free(rep);
        free(chars);
        return nullptr;
    }
    memcpy(chars, text, length);
    chars[length] = '\0';
    *rep = {length, static_cast<uint32_t>(capacity), chars, 1};
    return rep;
}

String::String(const char *text) {
    const size_t count = text == nullptr ? 0 : strlen(text);
    if (count == 0) {
        rep = share(&emptyRep);
        return;
    }
    rep = count < UINT32_MAX ? makeRep(text, static_cast<uint32_t>(count), count) : nullptr;
    if (rep == nullptr)
        throw std::bad_alloc();
}

String::String(const String &other) : rep(share(other.rep)) {}

String &String::operator=(const String &other) {
    if (this == &other)
        return *this;
    StringRep *old = rep;
    rep = share(other.rep);
    release(old);
    return *this;
}

String::~String() {
    release(rep);
}

uint32_t String::length() const {
    return rep->length;
}

uint32_t String::capacity() const {
    return rep->capacity;
}

const char *String::chars() const {
    return rep->chars;
}

StringRep *String::ensureUnique(StringRep *rep, uint32_t room, bool grow, int32_t extra) {
    uint64_t capacity = rep->capacity;
    if (grow) {
        const uint64_t wanted =
            static_cast<uint64_t>(room) + (extra > 0 ? static_cast<uint32_t>(extra) : 0U);
        capacity = wanted > capacity ? wanted : capacity;
    }
    const bool unique = __atomic_load_n(&rep->owners, __ATOMIC_ACQUIRE) == 1 && rep != &emptyRep;
    if (unique && capacity == rep->capacity)
        return rep;
    StringRep *fresh = makeRep(rep->chars, rep->length, capacity);
    if (fresh == nullptr)
        return rep;
    release(rep);
    return fresh;
}

} // namespace stdComponents
