#pragma once

// libheif's objects owned as unique pointers. Private to the media library.

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

} // namespace nuvrel
