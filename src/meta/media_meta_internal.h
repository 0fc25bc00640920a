#pragma once

#include "osal/media_meta.h"

#include "../log.h"

namespace osal {

inline constexpr const char* TAG = "MediaMeta";

// A new item with an all-zero value, which Destroy() can release safely for every type.
std::shared_ptr<MediaMeta::MetaItem> CreateZeroItem(MetaType type);

// Makes `item` hold a copy of the text. False, with the item unchanged, for null and, after an error line, if
// there is no memory for the copy.
bool StoreText(MediaMeta::MetaItem& item, const char* text);

// Whether there are a key and bytes to store; an error line if not.
bool CheckBlock(const char* key, MediaMeta::ByteBuffer block);

// Makes `item` hold a copy of the bytes. False if they cannot be copied: the item then holds an unfilled block.
bool StoreBlock(MediaMeta::MetaItem& item, MediaMeta::ByteBuffer block);

}  // namespace osal
