#include "osal/media_meta.h"

#include "media_meta_internal.h"

#include <android/log.h>
#include <utility>

namespace osal {

std::shared_ptr<MediaMeta> MediaMeta::Copy() const
{
    auto copy = Create();
    copy->mItems = ItemMap(mItems);  // constructed: assignment may search a place for each entry
    for (auto& [key, item] : copy->mItems) {
        const MetaType type = item->mType;
        if (type != META_TYPE_STRING && type != META_TYPE_BYTE_BUFFER) {
            continue;
        }
        const MetaItem::Value& value = item->mValue;
        auto own = CreateZeroItem(type);
        const bool copied = type == META_TYPE_STRING ? StoreText(*own, value.stringValue)
                                                     : CheckBlock(key.c_str(), value.byteBufferValue) &&
                                                           StoreBlock(*own, value.byteBufferValue);
        if (!copied) {
            __android_log_print(ANDROID_LOG_ERROR, META_LOG_TAG, "%s: copy %s failed", __func__, key.c_str());
            return nullptr;
        }
        item = std::move(own);
    }
    return copy;
}

bool MediaMeta::Merge(std::shared_ptr<MediaMeta> other)
{
    if (!other) {
        return false;
    }
    for (const auto& [name, item] : other->mItems) {
        const char* key = name.c_str();
        const MetaItem::Value& value = item->mValue;
        bool merged = true;
        switch (item->mType) {
            case META_TYPE_INT32:
                merged = SetInt32(key, value.int32Value);
                break;
            case META_TYPE_INT64:
                merged = SetInt64(key, value.int64Value);
                break;
            case META_TYPE_FLOAT:
                merged = SetFloat(key, value.floatValue);
                break;
            case META_TYPE_DOUBLE:
                merged = SetDouble(key, value.doubleValue);
                break;
            case META_TYPE_POINTER:
                merged = SetPointer(key, value.pointerValue);
                break;
            case META_TYPE_STRING:
                merged = SetString(key, value.stringValue);
                break;
            case META_TYPE_BYTE_BUFFER:
                merged = SetByteBuffer(key, value.byteBufferValue);
                break;
            case META_TYPE_FRACTION:
                merged = SetFraction(key, value.fractionValue);
                break;
            case META_TYPE_RECT:
                merged = SetRect(key, value.rectValue);
                break;
            case META_TYPE_OBJECT:
                merged = SetObject(key, item->mObject);
                break;
            default:
                __android_log_print(ANDROID_LOG_ERROR, META_LOG_TAG, "%s: Should not be here mType: %d", __func__,
                                    item->mType);
                break;
        }
        if (!merged) {
            __android_log_print(ANDROID_LOG_ERROR, META_LOG_TAG, "%s: Merge %s failed", __func__, key);
            return false;
        }
    }
    return true;
}

}  // namespace osal
