#include "../peer.h"

#include <QCoreApplication>
#include <QDataStream>
#include <QThread>
#include <QTimer>
#include <QVariantMap>

namespace bench {

struct QtQueue {
    QtQueue()
    {
        // Threads with an event loop need an application object, which reads its arguments as long as it exists.
        static int argc = 1;
        static std::array<char*, 2> argv{const_cast<char*>("bench"), nullptr};
        static const QCoreApplication application(argc, argv.data());
        mReceiver.moveToThread(&mThread);
        mThread.start();
    }
    ~QtQueue()
    {
        mThread.quit();
        mThread.wait();
    }
    void Post(Task* task)
    {
        const auto run = [task] { task->Run(); };
        QMetaObject::invokeMethod(&mReceiver, run, Qt::QueuedConnection);
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

    QThread mThread;
    QObject mReceiver;
};

// The keys are QStrings that exist before they are used, as those of QStringLiteral() do.
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

struct QtMap {
    void Set(const Entry& entry, int32_t value) { mMap[Key(entry)] = value; }
    void Set(const Entry& entry, double value) { mMap[Key(entry)] = value; }
    void Set(const Entry& entry, const char* value) { mMap[Key(entry)] = QString::fromUtf8(value); }
    void Get(const Entry& entry, int32_t& value) const { value = mMap.constFind(Key(entry))->toInt(); }
    void Get(const Entry& entry, double& value) const { value = mMap.constFind(Key(entry))->toDouble(); }
    void Get(const Entry& entry, const char*& value) const  // the low byte of the first character is first
    {
        value = reinterpret_cast<const char*>(mMap.constFind(Key(entry))->toString().constData());
    }
    template <typename Visit>
    void Walk(Visit visit) const
    {
        for (auto it = mMap.constBegin(); it != mMap.constEnd(); ++it) {
            visit(it->userType(), it.key().at(0).unicode());
        }
    }
    // Detached: without that nothing is copied before the first change.
    QtMap Copy() const
    {
        QtMap copy = *this;
        copy.mMap.detach();
        return copy;
    }

    QVariantMap mMap;
};

// Writes and reads with a stream each, since a stream has only one position.
struct QtParcel {
    explicit QtParcel(const QByteArray& data = {}) : mData(data) {}
    void Write(int64_t value) { mWriter << qint64{value}; }
    int64_t Read()
    {
        qint64 value = 0;
        mReader >> value;
        return value;
    }
    QtParcel Copy() { return QtParcel(QByteArray(mData.constData(), mData.size())); }

    QByteArray mData;
    QDataStream mWriter{&mData, QIODevice::Append};
    QDataStream mReader{&mData, QIODevice::ReadOnly};
};

const std::string VERSION = std::string("Qt ") + qVersion();
const bool REGISTERED = Add<QtQueue>("Qt", Kind::PEER, VERSION) &&
                        Add<QtMap>("QVariantMap", Kind::PEER, VERSION) &&
                        Add<QtParcel>("QDataStream", Kind::PEER, VERSION);

}  // namespace bench
