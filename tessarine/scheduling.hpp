#pragma once

/// Requests that wait for a pause, queues of operations, and small tools for threads.

#include "tessarine/scheduling/AsyncArraySequence.hpp"
#include "tessarine/scheduling/AsyncSequence.hpp"
#include "tessarine/scheduling/Debouncer.hpp"
#include "tessarine/scheduling/NetworkRequests.hpp"
#include "tessarine/scheduling/PublisherStreams.hpp"
#include "tessarine/scheduling/addOperationAfterLast.hpp"
#include "tessarine/scheduling/assertMainThread.hpp"
#include "tessarine/scheduling/getCallStack.hpp"
#include "tessarine/scheduling/synchronized.hpp"
