#pragma once

#include "osal/media_meta.h"

namespace osal {

inline constexpr const char* META_LOG_TAG = "MediaMeta";

// A new item whose value is all zero: to release it does no harm, whatever its type.
std::shared_ptr<MediaMeta::MetaItem> CreateZeroItem(MetaType type);

// A copy of `text` to be released with free(); null, after an error line, when there is no memory for it.
char* DuplicateText(const char* text);

// Makes `item` hold a copy of the text. False, with the item unchanged, for null and, after an error line, when
// there is no memory for the copy.
bool StoreText(MediaMeta::MetaItem& item, const char* value);

// Whether there is a key, and bytes to store under it; an error line if not.
bool CheckBlock(const char* key, MediaMeta::ByteBuffer value);

// Makes `item` hold a copy of the bytes. False when they cannot be copied, which leaves it an unfilled block.
bool StoreBlock(MediaMeta::MetaItem& item, MediaMeta::ByteBuffer value);

}  // namespace osal
