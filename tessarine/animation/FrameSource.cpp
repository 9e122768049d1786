#include "tessarine/animation/FrameSource.hpp"

#include <cmath>
#include <cstdint>
#include <cstdio>
#include <exception>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "tessarine/system/dispatch/DispatchQueue.hpp"
#include "tessarine/system/dispatch/Mutex.hpp"
#include "tessarine/values/fatal.hpp"

namespace tessarine {

void detail::requireMainQueue(const char* operation) noexcept {
  if (!DispatchQueue::isMainQueue()) [[unlikely]]
    fatal(std::string(operation) + " is called off the main queue.");
}

namespace {

constexpr double firstFrameTime = 1.0 / 60.0;

double seconds(const CVTimeStamp& stamp) {
  return static_cast<double>(stamp.videoTime) / static_cast<double>(stamp.videoTimeScale);
}

/// Only frames that take time reach a motion: a step of no time has no speed.
bool isUsable(const DisplayLink::Frame& frame) {
  const double span = frame.timestamp - frame.previousTimestamp;
  return span > 0 && std::isfinite(span);
}

void tellOfException(const char* what) noexcept {
  std::fprintf(stderr, "Tessarine: an exception left the handler of a frame: %s\n", what);
}

std::shared_ptr<FrameSource>& sharedSource() {
  static auto* const source = new std::shared_ptr<FrameSource>;
  return *source;
}

}  // namespace

/// What a display link is to its source.
struct DisplayLink::Member {
  static constexpr std::size_t nowhere = SIZE_MAX;

  std::shared_ptr<const OnFrame> onFrame;
  std::size_t place = nowhere;  // among those that run
};

/// The members that run, in the order in which they were set going. Main queue only.
class FrameSource::Members {
 public:
  explicit Members(std::function<void(bool)> onWanted) : onWanted_(std::move(onWanted)) {}

  bool isDelivering() const noexcept { return deliveries_ > 0; }

  void add(DisplayLink::Member& member) {
    member.place = running_.size();
    running_.push_back(&member);
    if (count_++ == 0 && onWanted_) onWanted_(true);
  }

  void remove(DisplayLink::Member& member) {
    running_[std::exchange(member.place, DisplayLink::Member::nowhere)] = nullptr;
    if (--count_ == 0 && onWanted_) onWanted_(false);
    if (deliveries_ == 0 && running_.size() > 2 * count_) closeGaps();
  }

  /// Callbacks may add and remove members, run a nested frame, and let go of the source.
  void deliver(const DisplayLink::Frame& frame) {
    ++deliveries_;
    const std::size_t end = running_.size();
    for (std::size_t i = 0; i < end; ++i) {
      if (!running_[i]) continue;
      const auto onFrame = running_[i]->onFrame;
      if (!onFrame || !*onFrame) continue;
      try {
        (*onFrame)(frame);
      } catch (const std::exception& exception) {
        tellOfException(exception.what());
      } catch (...) {
        tellOfException("of a type that is not known");
      }
    }
    if (--deliveries_ == 0 && running_.size() > count_) closeGaps();
  }

 private:
  void closeGaps() {
    std::size_t filled = 0;
    for (DisplayLink::Member* const member : running_) {
      if (!member) continue;
      member->place = filled;
      running_[filled++] = member;
    }
    running_.resize(filled);
  }

  const std::function<void(bool)> onWanted_;
  std::vector<DisplayLink::Member*> running_;  // null where one has paused
  std::size_t count_ = 0;
  int deliveries_ = 0;  // while there are any, places stand
};

/// The way of a frame from its thread to the main queue.
struct FrameSource::Inbox : std::enable_shared_from_this<Inbox> {
  void put(DisplayLink::Frame frame) {
    {
      const MutexLock lock(mutex);
      if (!isUsable(frame)) return;
      const bool isFirst = !waiting;
      if (!isFirst) frame.previousTimestamp = waiting->previousTimestamp;
      waiting = frame;
      if (!isFirst) return;
    }
    DispatchQueue::main()->async([inbox = shared_from_this()] { inbox->take(); });
  }

  /// On the main queue.
  void take() {
    DisplayLink::Frame frame;
    {
      const MutexLock lock(mutex);
      frame = *std::exchange(waiting, std::nullopt);
    }
    if (const auto alive = members.lock(); alive && isUsable(frame)) alive->deliver(frame);
  }

  /// The span from the frame of the host before.
  DisplayLink::Frame spanTo(double timestamp) {
    const MutexLock lock(mutex);
    const double previous = lastOfHost.value_or(timestamp - firstFrameTime);
    if (std::isfinite(timestamp)) lastOfHost = timestamp;
    return {previous, timestamp};
  }

  void forgetLast() {
    const MutexLock lock(mutex);
    lastOfHost.reset();
  }

  std::weak_ptr<Members> members;  // constant once installed
  Mutex mutex;
  std::optional<DisplayLink::Frame> waiting TESSARINE_GUARDED_BY(mutex);
  std::optional<double> lastOfHost TESSARINE_GUARDED_BY(mutex);
};

FrameSource::FrameSource(const std::shared_ptr<CVDisplayLink>& link) {
  if (!link) fatal("There is no display link.");
  install([link](bool isWanted) { isWanted ? link->start() : link->stop(); });
  link->setOutputHandler([inbox = inbox_](const CVTimeStamp& now, const CVTimeStamp& output) {
    inbox->put({seconds(now), seconds(output)});
    return 0;
  });
}

FrameSource::FrameSource(std::function<void(bool)> onWanted) {
  install([onWanted = std::move(onWanted), this](bool isWanted) {
    // A rest that began in this very frame has not let any time go by.
    if (isWanted && !members_->isDelivering()) inbox_->forgetLast();
    if (onWanted) onWanted(isWanted);
  });
}

std::shared_ptr<FrameSource> FrameSource::hostDriven(std::function<void(bool)> onWanted) {
  return std::shared_ptr<FrameSource>(new FrameSource(std::move(onWanted)));
}

FrameSource::~FrameSource() = default;

void FrameSource::install(std::function<void(bool)> onWanted) {
  members_ = std::make_shared<Members>(std::move(onWanted));
  inbox_ = std::make_shared<Inbox>();
  inbox_->members = members_;
}

void FrameSource::setShared(std::shared_ptr<FrameSource> frames) {
  detail::requireMainQueue("FrameSource::setShared");
  sharedSource().swap(frames);
}

std::shared_ptr<FrameSource> FrameSource::shared() {
  detail::requireMainQueue("FrameSource::shared");
  return sharedSource();
}

void FrameSource::frame(double timestamp) { inbox_->put(inbox_->spanTo(timestamp)); }

void FrameSource::frame(const DisplayLink::Frame& frame) { inbox_->put(frame); }

// ---- display links ----

namespace {

std::shared_ptr<FrameSource> sourceFor(std::shared_ptr<FrameSource> frames) {
  detail::requireMainQueue("DisplayLink::DisplayLink");
  if (!frames) frames = sharedSource();
  return frames ? frames : std::make_shared<FrameSource>();
}

}  // namespace

DisplayLink::DisplayLink(std::shared_ptr<FrameSource> frames)
    : frames_(sourceFor(std::move(frames))), member_(std::make_unique<Member>()) {}

DisplayLink::~DisplayLink() {
  detail::requireMainQueue("DisplayLink::~DisplayLink");
  setIsPaused(true);
}

DisplayLink::OnFrame DisplayLink::onFrame() const {
  return member_->onFrame ? *member_->onFrame : OnFrame();
}

void DisplayLink::setOnFrame(OnFrame onFrame) {
  detail::requireMainQueue("DisplayLink::setOnFrame");
  auto replaced = std::make_shared<const OnFrame>(std::move(onFrame));
  member_->onFrame.swap(replaced);
}

bool DisplayLink::isPaused() const noexcept { return member_->place == Member::nowhere; }

void DisplayLink::setIsPaused(bool isPaused) {
  detail::requireMainQueue("DisplayLink::setIsPaused");
  if (isPaused == this->isPaused()) return;
  // The host, told of it, may destroy this link and with it the source.
  const auto members = frames_->members_;
  if (isPaused)
    members->remove(*member_);
  else
    members->add(*member_);
}

}  // namespace tessarine
