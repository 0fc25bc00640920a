#include "osal/media_meta.h"

#include "media_meta_internal.h"

#include "osal/media_param.h"

#include <android/log.h>
#include <utility>

namespace osal {

bool MediaMeta::WriteToMediaParam(MediaParam* param)
{
    if (param == nullptr) {
        return false;
    }
    param->WriteInt32(static_cast<int32_t>(mItems.size()));
    bool carried = true;
    for (const auto& [key, item] : mItems) {
        const MetaItem::Value& value = item->mValue;
        param->WriteInt32(item->mType);
        param->WriteString(key.c_str());
        switch (item->mType) {
            case META_TYPE_INT32:
                param->WriteInt32(value.int32Value);
                break;
            case META_TYPE_INT64:
                param->WriteInt64(value.int64Value);
                break;
            case META_TYPE_POINTER:
                param->WriteInt64(reinterpret_cast<int64_t>(value.pointerValue));
                break;
            case META_TYPE_FLOAT:
                param->WriteDouble(static_cast<double>(value.floatValue));
                break;
            case META_TYPE_DOUBLE:
                param->WriteDouble(value.doubleValue);
                break;
            case META_TYPE_STRING:
                // A missing text must not shift the keys and texts behind it.
                param->WriteString(value.stringValue != nullptr ? value.stringValue : "");
                break;
            case META_TYPE_FRACTION:
                param->WriteInt32(value.fractionValue.num);
                param->WriteInt32(value.fractionValue.den);
                break;
            case META_TYPE_RECT:
                param->WriteInt32(value.rectValue.a);
                param->WriteInt32(value.rectValue.b);
                param->WriteInt32(value.rectValue.c);
                param->WriteInt32(value.rectValue.d);
                break;
            case META_TYPE_BYTE_BUFFER:
                __android_log_print(ANDROID_LOG_ERROR, META_LOG_TAG,
                                    "MediaParam doesn't support WriteByteBuffer method");
                carried = false;
                break;
            case META_TYPE_OBJECT:
                __android_log_print(ANDROID_LOG_ERROR, META_LOG_TAG,
                                    "MediaParam doesn't support WriteObject method");
                carried = false;
                break;
            default:
                __android_log_print(ANDROID_LOG_ERROR, META_LOG_TAG, "%s: Should not be here mType: %d", __func__,
                                    item->mType);
                carried = false;
                break;
        }
    }
    return carried;
}

bool MediaMeta::ReadFromMediaParam(const MediaParam* param)
{
    if (param == nullptr) {
        return false;
    }
    bool complete = true;
    const int32_t count = param->ReadInt32();
    for (int32_t i = 0; i < count; ++i) {
        const auto type = static_cast<MetaType>(param->ReadInt32());
        const char* key = param->ReadString();
        if (key == nullptr) {
            continue;
        }
        auto item = CreateZeroItem(type);
        MetaItem::Value& value = item->mValue;
        switch (type) {
            case META_TYPE_INT32:
                value.int32Value = param->ReadInt32();
                break;
            case META_TYPE_INT64:
                value.int64Value = param->ReadInt64();
                break;
            case META_TYPE_POINTER:
                // NOLINTNEXTLINE(performance-no-int-to-ptr): an address travels as an integer
                value.pointerValue = reinterpret_cast<void*>(param->ReadInt64());
                break;
            case META_TYPE_FLOAT:
                value.floatValue = static_cast<float>(param->ReadDouble());
                break;
            case META_TYPE_DOUBLE:
                value.doubleValue = param->ReadDouble();
                break;
            case META_TYPE_STRING: {
                const char* text = param->ReadString();
                value.stringValue = text != nullptr ? DuplicateText(text) : nullptr;
                complete = complete && value.stringValue != nullptr;
                if (text != nullptr && value.stringValue == nullptr) {
                    continue;
                }
                break;
            }
            case META_TYPE_FRACTION:
                value.fractionValue.num = param->ReadInt32();
                value.fractionValue.den = param->ReadInt32();
                break;
            case META_TYPE_RECT:
                value.rectValue.a = param->ReadInt32();
                value.rectValue.b = param->ReadInt32();
                value.rectValue.c = param->ReadInt32();
                value.rectValue.d = param->ReadInt32();
                break;
            case META_TYPE_BYTE_BUFFER:
                __android_log_print(ANDROID_LOG_ERROR, META_LOG_TAG,
                                    "MediaParam doesn't support ReadByteBuffer method");
                complete = false;
                break;
            case META_TYPE_OBJECT:
                __android_log_print(ANDROID_LOG_ERROR, META_LOG_TAG,
                                    "MediaParam doesn't support ReadObject method");
                complete = false;
                break;
            default:
                __android_log_print(ANDROID_LOG_ERROR, META_LOG_TAG, "%s: Should not be here mType: %d", __func__,
                                    type);
                complete = false;
                break;
        }
        mItems.insert_or_assign(key, std::move(item));
    }
    return complete;
}

}  // namespace osal
