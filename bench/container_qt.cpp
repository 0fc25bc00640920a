#include "container_shapes.h"

#include <QPoint>
#include <QString>
#include <QVariantMap>

namespace bench {

namespace {

// Its keys are QStrings that exist before they are used, as those of QStringLiteral() do.
const QString& Key(const Entry& entry)
{
    static const std::vector<QString> keys = [] {
        std::vector<QString> result;
        for (const Entry& known : AllEntries()) {
            result.push_back(QString::fromLatin1(known.mKey));
        }
        return result;
    }();
    return keys[entry.mIndex];
}

class QtMap {
public:
    static constexpr const char* NAME = "qvariantmap";

    void Set(const Entry& entry, int32_t value) { mMap[Key(entry)] = value; }
    void Set(const Entry& entry, int64_t value) { mMap[Key(entry)] = qlonglong{value}; }
    void Set(const Entry& entry, double value) { mMap[Key(entry)] = value; }
    void Set(const Entry& entry, const char* value) { mMap[Key(entry)] = QString::fromUtf8(value); }
    void Set(const Entry& entry, Fraction value) { mMap[Key(entry)] = QPoint(value.num, value.den); }

    template <typename T>
    uint64_t Read(const Entry& entry) const
    {
        const auto position = mMap.constFind(Key(entry));
        if (position == mMap.constEnd()) {
            return 0;
        }
        if constexpr (std::is_same_v<T, int32_t>) {
            return Digest(position->toInt());
        } else if constexpr (std::is_same_v<T, int64_t>) {
            return Digest(int64_t{position->toLongLong()});
        } else if constexpr (std::is_same_v<T, double>) {
            return Digest(position->toDouble());
        } else if constexpr (std::is_same_v<T, const char*>) {
            return position->toString().at(0).unicode();
        } else {
            const QPoint point = position->toPoint();
            return Digest(Fraction{point.x(), point.y()});
        }
    }
    uint64_t Walk() const
    {
        uint64_t sum = 0;
        for (auto it = mMap.constBegin(); it != mMap.constEnd(); ++it) {
            benchmark::DoNotOptimize(it->userType());
            sum += it.key().at(0).unicode();
        }
        return sum;
    }
    // Detached: without that nothing is copied before the first change.
    QtMap Copy() const
    {
        QtMap copy = *this;
        copy.mMap.detach();
        return copy;
    }

private:
    QVariantMap mMap;
};

const bool REGISTERED = RegisterContainer<QtMap>();

}  // namespace

}  // namespace bench
