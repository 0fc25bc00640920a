#include "osal/media_meta.h"

#include "media_meta_internal.h"

#include <android/log.h>

namespace osal {

const std::string& MediaMeta::ConstIterator::EmptyKey()
{
    static const std::string emptyKey;
    return emptyKey;
}

const std::shared_ptr<MediaMeta::MetaItem>& MediaMeta::ConstIterator::EmptyValue()
{
    static const std::shared_ptr<MetaItem> emptyValue;
    return emptyValue;
}

void MediaMeta::Keep(std::unique_ptr<ConstIterator>& slot, ItemMap::const_iterator position) const
{
    slot = std::make_unique<ConstIterator>(mItems, position);
}

void MediaMeta::Dump() const
{
    __android_log_print(ANDROID_LOG_DEBUG, META_LOG_TAG, "######## MediaMeta dump debug");
    for (const auto& [name, item] : mItems) {
        const char* key = name.c_str();
        const MetaItem::Value& value = item->mValue;
        switch (item->mType) {
            case META_TYPE_NONE:
                __android_log_print(ANDROID_LOG_DEBUG, META_LOG_TAG, "empty item");
                break;
            case META_TYPE_INT32:
                __android_log_print(ANDROID_LOG_DEBUG, META_LOG_TAG, "(%s, int32_t:%d)", key, value.int32Value);
                break;
            case META_TYPE_INT64:
                __android_log_print(ANDROID_LOG_DEBUG, META_LOG_TAG, "(%s, int64_t:%ld)", key, value.int64Value);
                break;
            case META_TYPE_FLOAT:
                __android_log_print(ANDROID_LOG_DEBUG, META_LOG_TAG, "(%s, float:%f)", key,
                                    static_cast<double>(value.floatValue));
                break;
            case META_TYPE_DOUBLE:
                __android_log_print(ANDROID_LOG_DEBUG, META_LOG_TAG, "(%s, double:%f)", key, value.doubleValue);
                break;
            case META_TYPE_POINTER:
                __android_log_print(ANDROID_LOG_DEBUG, META_LOG_TAG, "(%s, pointer:%p)", key, value.pointerValue);
                break;
            case META_TYPE_STRING:
                __android_log_print(ANDROID_LOG_DEBUG, META_LOG_TAG, "(%s, string:%s)", key,
                                    value.stringValue != nullptr ? value.stringValue : "(null)");
                break;
            case META_TYPE_BYTE_BUFFER:
                __android_log_print(ANDROID_LOG_DEBUG, META_LOG_TAG, "(%s, bytebuffer(%p, %zu))", key,
                                    static_cast<void*>(value.byteBufferValue.data), value.byteBufferValue.size);
                break;
            case META_TYPE_FRACTION:
                __android_log_print(ANDROID_LOG_DEBUG, META_LOG_TAG, "(%s, fraction:(%d/%d))", key,
                                    value.fractionValue.num, value.fractionValue.den);
                break;
            case META_TYPE_RECT:
                __android_log_print(ANDROID_LOG_DEBUG, META_LOG_TAG, "(%s, rect:(%d, %d, %d, %d))", key,
                                    value.rectValue.a, value.rectValue.b, value.rectValue.c, value.rectValue.d);
                break;
            case META_TYPE_OBJECT:
                __android_log_print(ANDROID_LOG_DEBUG, META_LOG_TAG, "(%s, object:%p)", key,
                                    static_cast<void*>(item->mObject.get()));
                break;
            default:
                __android_log_print(ANDROID_LOG_ERROR, META_LOG_TAG, "%s: Unknown item: %d", __func__,
                                    item->mType);
                break;
        }
    }
}

}  // namespace osal
