#include "tessarine/system/dispatch/MainQueue.hpp"

#include "tessarine/system/dispatch/internal/MainLoop.hpp"

namespace tessarine {

using detail::MainLoop;

void MainQueue::run() { MainLoop::shared().run(); }
void MainQueue::stop() { MainLoop::shared().stop(); }
std::size_t MainQueue::drain() { return MainLoop::shared().drain(); }
int MainQueue::fileDescriptor() { return MainLoop::shared().fileDescriptor(); }
bool MainQueue::isMainThread() noexcept { return MainLoop::shared().isMainThread(); }

}  // namespace tessarine
