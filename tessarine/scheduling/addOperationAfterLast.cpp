#include "tessarine/scheduling/addOperationAfterLast.hpp"

#include <string>
#include <utility>

#include "tessarine/values/fatal.hpp"

namespace tessarine {

void addOperationAfterLast(OperationQueue& queue, std::shared_ptr<Operation> operation) {
  if (!operation) fatal("A null operation is added to a queue.");
  if (const int count = queue.maxConcurrentOperationCount(); count != 1)
    fatal("addOperationAfterLast on a queue with maxConcurrentOperationCount " +
          std::to_string(count) + "; it must be 1.");
  if (const auto operations = queue.operations(); !operations.empty())
    operation->addDependency(operations.back());
  queue.addOperation(std::move(operation));
}

}  // namespace tessarine
