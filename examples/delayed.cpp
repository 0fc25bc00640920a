// Work at its time, and what becomes of messages that never ran.

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
        NotifyFinished();  // last: whoever waits may destroy the frame from here on
    }

    // Wait() returns for a dropped message too: only the handler itself knows.
    bool WaitUntilHandled()
    {
        Wait();
        return mIsHandled;
    }

private:
    const char* mName;
    bool mIsHandled = false;  // read after Wait() only
};
//! [fate]

}  // namespace

int main()
{
    //! [order]
    // Handlers before the queue: on every way out it is destroyed, and so stopped, before they are.
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
    queue.RemoveMsg(&removed);  // drops it at once; one that is running by now would run on
    std::printf("removed: %s\n", removed.WaitUntilHandled() ? "handled" : "dropped");
    queue.Stop();  // drops what is pending
    std::printf("pending: %s\n", pending.WaitUntilHandled() ? "handled" : "dropped");
    //! [drop]
    return queue.QueueMsg(&early, 0) == 0 ? 1 : 0;  // a stopped queue takes none
}
