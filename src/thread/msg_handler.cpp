#include "osal/msg_queue.h"

namespace osal {

IMsgHandler::~IMsgHandler() = default;

MsgHandlerBase::MsgHandlerBase() : mFinished(false) {}

MsgHandlerBase::~MsgHandlerBase() = default;

void MsgHandlerBase::Wait()
{
    std::unique_lock<std::mutex> lock(mMutex);
    mCond.wait(lock, [this] { return mFinished; });
}

void MsgHandlerBase::NotifyFinished()
{
    // Notified under the lock: as soon as a waiter has the lock, it may destroy the handler.
    const std::lock_guard<std::mutex> lock(mMutex);
    mFinished = true;
    mCond.notify_all();
}

}  // namespace osal
