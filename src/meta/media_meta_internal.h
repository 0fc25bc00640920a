#pragma once

#include "osal/media_meta.h"

namespace osal {

inline constexpr const char* META_LOG_TAG = "MediaMeta";

// A new item whose value is all zero: to release it does no harm, whatever its type.
std::shared_ptr<MediaMeta::MetaItem> CreateZeroItem(MetaType type);

// A copy of `text` to be released with free(); null, after an error line, when there is no memory for it.
char* DuplicateText(const char* text);

}  // namespace osal
