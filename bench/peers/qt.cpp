#include "../peer.h"

#include <QByteArray>
#include <QCoreApplication>
#include <QDataStream>
#include <QObject>
#include <QString>
#include <QThread>
#include <QTimer>
#include <QVariantMap>

namespace bench {

class QtQueue {
public:
    QtQueue()
    {
        // Threads with an event loop take an application object; it reads its arguments for as long as it lives.
        static int argc = 1;
        static char name[] = "bench";
        static char* argv[] = {name, nullptr};
        static const QCoreApplication application(argc, argv);
        mReceiver.moveToThread(&mThread);
    }

    void Start() { mThread.start(); }
    void Stop()
    {
        mThread.quit();
        mThread.wait();
    }
    void Post(Task* task)
    {
        QMetaObject::invokeMethod(
            &mReceiver, [task] { task->Run(); }, Qt::QueuedConnection);
    }
    void PostDelayed(Task* task, uint64_t delayNs)
    {
        // A timer belongs to the thread that it is started on.
        const auto delay = std::chrono::milliseconds((delayNs + 999'999) / 1'000'000);
        const auto start = [this, task, delay] {
            QTimer::singleShot(delay, Qt::PreciseTimer, &mReceiver, [task] { task->Run(); });
        };
        QMetaObject::invokeMethod(&mReceiver, start, Qt::QueuedConnection);
    }

private:
    QThread mThread;
    QObject mReceiver;
};

// Its keys are QStrings that exist before they are used, as those of QStringLiteral() do.
const QString& Key(const Entry& entry)
{
    static const std::vector<QString> keys = [] {
        std::vector<QString> result;
        for (const Entry& known : AllEntries()) {
            result.push_back(QString::fromStdString(known.mKey));
        }
        return result;
    }();
    return keys[entry.mIndex];
}

class QtMap {
public:
    template <typename T>
    void Set(const Entry& entry, T value)
    {
        if constexpr (std::is_same_v<T, const char*>) {
            mMap[Key(entry)] = QString::fromUtf8(value);
        } else {
            mMap[Key(entry)] = value;
        }
    }
    template <typename T>
    uint64_t Read(const Entry& entry) const
    {
        const auto position = mMap.constFind(Key(entry));
        if (position == mMap.constEnd()) {
            return 0;
        }
        if constexpr (std::is_same_v<T, int32_t>) {
            return Digest(position->toInt());
        } else if constexpr (std::is_same_v<T, double>) {
            return Digest(position->toDouble());
        } else {
            return position->toString().at(0).unicode();
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

// Writes and reads through one position each, of which a stream has only one.
class QtParcel {
public:
    explicit QtParcel(const QByteArray& data = {}) : mData(data), mWriter(&mData, QIODevice::Append) {}

    void Write(int64_t value) { mWriter << qint64{value}; }
    int64_t Read()
    {
        if (!mReader) {
            mReader = std::make_unique<QDataStream>(&mData, QIODevice::ReadOnly);
        }
        qint64 value = 0;
        *mReader >> value;
        return value;
    }
    QtParcel Copy() { return QtParcel(QByteArray(mData.constData(), mData.size())); }

private:
    QByteArray mData;
    QDataStream mWriter;
    std::unique_ptr<QDataStream> mReader;  // made by the first read
};

const std::string VERSION = std::string("Qt ") + qVersion();
const bool REGISTERED = Add<QtQueue>("Qt", Kind::PEER, VERSION) &&
                        Add<QtMap>("QVariantMap", Kind::PEER, VERSION) &&
                        Add<QtParcel>("QDataStream", Kind::PEER, VERSION);

}  // namespace bench
