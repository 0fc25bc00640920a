#include "parcel_shapes.h"

#include <QByteArray>
#include <QDataStream>

namespace bench {

namespace {

// Writes and reads through one position each, of which a stream has only one.
class QtParcel {
public:
    static constexpr const char* NAME = "qdatastream";

    QtParcel() : mWriter(&mData, QIODevice::WriteOnly) {}

    void Write(int32_t value) { mWriter << qint32{value}; }
    void Write(int64_t value) { mWriter << qint64{value}; }
    void Write(const char* value)
    {
        mWriter << QByteArray::fromRawData(value, static_cast<int>(std::strlen(value)));
    }
    int32_t ReadInt32() { return Next<qint32>(); }
    int64_t ReadInt64() { return Next<qint64>(); }
    uint64_t ReadTextSize() { return static_cast<uint64_t>(Next<QByteArray>().size()); }
    QtParcel Copy() { return QtParcel(QByteArray(mData.constData(), mData.size())); }

private:
    explicit QtParcel(const QByteArray& data) : mData(data), mWriter(&mData, QIODevice::Append) {}

    template <typename T>
    T Next()
    {
        if (!mReader) {
            mReader = std::make_unique<QDataStream>(&mData, QIODevice::ReadOnly);
        }
        T value{};
        *mReader >> value;
        return value;
    }

    QByteArray mData;
    QDataStream mWriter;
    std::unique_ptr<QDataStream> mReader;  // made by the first read
};

const bool REGISTERED = RegisterParcel<QtParcel>();

}  // namespace

}  // namespace bench
