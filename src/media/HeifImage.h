#pragma once

// libheif's objects owned as unique pointers, and a picture decoded from them. Private to the media
// library.

#include <QImage>

#include <libheif/heif.h>

#include <memory>

namespace nuvrel {

struct HeifDeleter
{
    void operator()(heif_context* context) const { heif_context_free(context); }
    void operator()(heif_image_handle* handle) const { heif_image_handle_release(handle); }
    void operator()(heif_image* image) const { heif_image_release(image); }
    void operator()(heif_encoder* encoder) const { heif_encoder_release(encoder); }
};

template <typename T>
using HeifPointer = std::unique_ptr<T, HeifDeleter>;

/// The picture of `handle`, turned as its rotation and mirror boxes say, its long side at most
/// `maxSide` and never enlarged; with its alpha channel when it has one. Null when decoding fails.
QImage decodeHeifImage(heif_image_handle* handle, int maxSide);

/// The smallest picture stored beside `primary` whose long side is at least `minSide`, or null. Phones
/// store one next to the tiled full-size picture; it decodes a hundred times faster.
HeifPointer<heif_image_handle> heifThumbnail(heif_image_handle* primary, int minSide);

} // namespace nuvrel
