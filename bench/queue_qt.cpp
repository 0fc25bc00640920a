#include "queue_shapes.h"

#include <QCoreApplication>
#include <QObject>
#include <QThread>
#include <QTimer>

namespace bench {

namespace {

class QtQueue {
public:
    static constexpr const char* NAME = "qt";

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
    void Post(osal::IMsgHandler* handler)
    {
        QMetaObject::invokeMethod(
            &mReceiver, [handler] { Run(handler); }, Qt::QueuedConnection);
    }
    void PostDelayed(osal::IMsgHandler* handler, uint64_t delayNs)
    {
        // A timer belongs to the thread that it is started on.
        const auto delay = std::chrono::milliseconds((delayNs + 999'999) / 1'000'000);
        QMetaObject::invokeMethod(
            &mReceiver,
            [this, handler, delay] {
                QTimer::singleShot(delay, Qt::PreciseTimer, &mReceiver, [handler] { Run(handler); });
            },
            Qt::QueuedConnection);
    }

private:
    static void Run(osal::IMsgHandler* handler)
    {
        int32_t arg = 0;
        handler->HandleMsg(arg);
    }

    QThread mThread;
    QObject mReceiver;
};

const bool REGISTERED = Version("Qt", qVersion()) && RegisterQueue<QtQueue, ALL_BUT_REMOVAL>();

}  // namespace

}  // namespace bench
