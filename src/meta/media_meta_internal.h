#pragma once

#include "osal/media_meta.h"

#include "../log.h"

namespace osal {

inline constexpr const char* TAG = "MediaMeta";

// A new item with an all-zero value, which Destroy() can release safely for every type.
std::shared_ptr<MediaMeta::MetaItem> CreateZeroItem(MetaType type);

// Makes `item` hold a copy of the string. Returns false and leaves the item unchanged for null (logs nothing) and
// if there is no memory for the copy (logs an error).
bool StoreString(MediaMeta::MetaItem& item, const char* value);

// Returns whether there are a key and bytes to store. Logs an error if not.
bool CheckBuffer(const char* key, MediaMeta::ByteBuffer buffer);

// Makes `item` hold a copy of the bytes. Returns false if the platform refuses to copy them: the item then holds a
// buffer with undefined content.
bool StoreBuffer(MediaMeta::MetaItem& item, MediaMeta::ByteBuffer buffer);

}  // namespace osal
