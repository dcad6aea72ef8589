// SPDX-License-Identifier: Apache-2.0
#ifndef BBPFLASH_TESTS_SUPPORT_LAYOUT_H
#define BBPFLASH_TESTS_SUPPORT_LAYOUT_H

#include <cstddef>

// Where `field` lies in `object`, in bytes; offsetof does not promise that for a class with a
// virtual destructor.
template <class Object, class Field>
std::size_t OffsetIn(const Object& object, const Field& field) {
    return static_cast<std::size_t>(reinterpret_cast<const char*>(&field) -
                                    reinterpret_cast<const char*>(&object));
}

#endif
