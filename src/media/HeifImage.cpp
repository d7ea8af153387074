#include "media/HeifImage.h"

#include <algorithm>
#include <vector>

namespace nuvrel {

QImage decodeHeifImage(heif_image_handle* handle, int maxSide)
{
    const bool alpha = heif_image_handle_has_alpha_channel(handle) != 0;
    heif_image* decodedRaw = nullptr;
    if (heif_decode_image(handle, &decodedRaw, heif_colorspace_RGB,
                          alpha ? heif_chroma_interleaved_RGBA : heif_chroma_interleaved_RGB, nullptr)
            .code != heif_error_Ok)
        return {};
    HeifPointer<heif_image> decoded(decodedRaw);
    const int width = heif_image_get_width(decoded.get(), heif_channel_interleaved);
    const int height = heif_image_get_height(decoded.get(), heif_channel_interleaved);
    int stride = 0;
    const uint8_t* pixels = heif_image_get_plane_readonly(decoded.get(), heif_channel_interleaved, &stride);
    if (!pixels || width <= 0 || height <= 0 || maxSide <= 0)
        return {};
    // The view does not own the pixels: the scaled (or copied) image does, before `decoded` goes.
    const QImage view(pixels, width, height, stride, alpha ? QImage::Format_RGBA8888 : QImage::Format_RGB888);
    if (width <= maxSide && height <= maxSide)
        return view.copy();
    return view.scaled(view.size().scaled(maxSide, maxSide, Qt::KeepAspectRatio).expandedTo(QSize(1, 1)),
                       Qt::IgnoreAspectRatio, Qt::SmoothTransformation);
}

HeifPointer<heif_image_handle> heifThumbnail(heif_image_handle* primary, int minSide)
{
    const int count = heif_image_handle_get_number_of_thumbnails(primary);
    if (count <= 0)
        return {};
    std::vector<heif_item_id> ids(static_cast<size_t>(count));
    const int listed = heif_image_handle_get_list_of_thumbnail_IDs(primary, ids.data(), count);
    HeifPointer<heif_image_handle> chosen;
    int chosenSide = 0;
    for (int i = 0; i < listed; ++i) {
        heif_image_handle* raw = nullptr;
        if (heif_image_handle_get_thumbnail(primary, ids[size_t(i)], &raw).code != heif_error_Ok || !raw)
            continue;
        HeifPointer<heif_image_handle> thumbnail(raw);
        const int side = std::max(heif_image_handle_get_width(raw), heif_image_handle_get_height(raw));
        if (side >= minSide && (!chosen || side < chosenSide)) {
            chosen = std::move(thumbnail);
            chosenSide = side;
        }
    }
    return chosen;
}

} // namespace nuvrel
