// SPDX-License-Identifier: Apache-2.0
// What the image's file can do wrong.
#include <algorithm>
#include <cerrno>
#include <limits>
#include <set>

#include "tests/fault/Catalogue.h"
#include "tests/fault/CatalogueParts.h"

namespace fault {

namespace {

using virt::CallKind;
using virt::Strike;
using How = Strike::How;

}  // namespace

void Catalogue::ForEachFileFault(const Visit& visit) const {
    const auto happen = [&](const CallFault& fault) { visit(Injection::Of(Kind::File, fault)); };
    std::vector<long> lengths = {0,        1,         2033,      2034,      26843545,
                                 26843546, 133363723, 133363724, 2147483647};
    for (const long long length : {2147483648, 4294967295, 4294967306, 9223372036854775807}) {
        if (length <= std::numeric_limits<long>::max()) {
            lengths.push_back(static_cast<long>(length));
        }
    }
    for (const Place& place : places_) {
        const auto fail = [&](const Strike& strike) {
            for (const int times : {1, 2, FOR_EVER}) {
                happen(At(place, strike, times));
            }
        };
        if (place.kind == CallKind::Fopen || place.kind == CallKind::Fseek ||
            place.kind == CallKind::Ftell) {
            for (const int error : {EACCES, ENOENT, EIO, EMFILE, ENOMEM}) {
                fail(Make(How::Fail, error));
            }
        }
        if (place.kind == CallKind::Ftell) {
            for (const long length : lengths) {
                fail(Make(How::Value, 0, length));
            }
        } else if (place.kind == CallKind::Fread) {
            for (const long limit :
                 std::set<long>{0, 1, 13, place.size / 2, std::max(0L, place.size - 1)}) {
                fail(Make(How::Limit, EIO, limit));
            }
        }
        // The file changes, or the disk goes bad, just before any call after its first opening.
        if (IsFile(place.kind) || place.kind == CallKind::Send || place.kind == CallKind::Receive) {
            std::set<long> sizes;
            std::set<long> offsets;
            for (const long change : {-5000, -2035, -100, -1, 1, 13, 2034, 2035, 5000}) {
                sizes.insert(std::max(0L, image_size_ + change));
            }
            for (long eighth = 0; eighth < 8; ++eighth) {
                offsets.insert(image_size_ * eighth / 8);
            }
            for (const long size : sizes) {
                happen({place.kind, place.index, {}, 1, FileAction::Resize, size});
            }
            for (const long offset : offsets) {
                happen({place.kind, place.index, {}, 1, FileAction::UnreadableFrom, offset});
            }
        }
    }
}

}  // namespace fault
