// Delayed messages, and how a handler tells a handled message from a dropped one.

#include <cstdint>
#include <cstdio>
#include <osal/msg_queue.h>

namespace {

constexpr uint64_t NS_PER_MS = 1'000'000;
constexpr uint64_t NS_PER_HOUR = 3'600'000 * NS_PER_MS;

//! [fate]
class Frame : public osal::MsgHandlerBase {
public:
    explicit Frame(const char* name) : mName(name) {}

    void HandleMsg(int32_t& /*arg*/) override
    {
        std::printf("%s runs\n", mName);
        mIsHandled = true;
        NotifyFinished();  // last: from here on, the waiting thread may destroy the frame
    }

    // Wait() also returns for a dropped message: only the handler knows whether it ran.
    bool WaitUntilHandled()
    {
        Wait();
        return mIsHandled;
    }

private:
    const char* mName;
    bool mIsHandled = false;  // read only after Wait()
};
//! [fate]

}  // namespace

int main()
{
    //! [order]
    // The handlers are declared before the queue: every return then stops the queue before it destroys them.
    Frame late("late");
    Frame early("early");
    Frame removed("removed");
    Frame pending("pending");
    osal::MsgQueue queue;
    if (queue.Start("presenter", osal::Thread::PRIORITY_DEFAULT) != 0 ||
        queue.QueueMsg(&removed, NS_PER_HOUR) != 0 || queue.QueueMsg(&pending, NS_PER_HOUR) != 0 ||
        queue.QueueMsg(&late, 1000 * NS_PER_MS) != 0 || queue.QueueMsg(&early, 0) != 0) {
        return 1;
    }
    //! [order]
    std::printf("late: %s\n", late.WaitUntilHandled() ? "handled" : "dropped");
    //! [drop]
    queue.RemoveMsg(&removed);  // drops what is pending; a HandleMsg() that is running would continue
    std::printf("removed: %s\n", removed.WaitUntilHandled() ? "handled" : "dropped");
    queue.Stop();  // drops all pending messages
    std::printf("pending: %s\n", pending.WaitUntilHandled() ? "handled" : "dropped");
    //! [drop]
    return queue.QueueMsg(&early, 0) == 0 ? 1 : 0;  // a stopped queue refuses messages
}
