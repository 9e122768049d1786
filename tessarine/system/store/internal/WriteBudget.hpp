#pragma once

#include <algorithm>
#include <array>
#include <limits>

namespace tessarine::detail {

/// How many writes may go out: at most `perMinute` in any minute and `perHour` in any hour, a
/// quarter of them in a burst and the rest evenly. Times are seconds on one rising line.
class WriteBudget {
 public:
  WriteBudget(double perMinute, double perHour)
      : buckets_{Bucket(perMinute, 60), Bucket(perHour, 3600)} {}

  /// When the next write may go out, `now` if at once.
  double nextAllowed(double now) const {
    double allowed = now;
    for (const Bucket& bucket : buckets_) allowed = std::max(allowed, bucket.nextAllowed(now));
    return allowed;
  }

  /// Counts a write that went out at `now`.
  void spend(double now) {
    for (Bucket& bucket : buckets_) bucket.spend(now);
  }

 private:
  /// A token bucket. What it lets out in a span without its end is its capacity and what comes in
  /// during the span, less the token that would come with the end.
  class Bucket {
   public:
    Bucket(double limit, double span)
        : capacity_(std::max(1.0, static_cast<double>(static_cast<int>(limit / 4)))),
          rate_((limit - capacity_ + 1) / span),
          tokens_(capacity_) {}

    double nextAllowed(double now) const {
      const double tokens = tokensAt(now);
      if (tokens >= 1) return now;
      return rate_ > 0 ? now + (1 - tokens) / rate_ : std::numeric_limits<double>::infinity();
    }

    void spend(double now) {
      tokens_ = tokensAt(now) - 1;
      at_ = now;
    }

   private:
    double tokensAt(double now) const {
      return std::min(capacity_, tokens_ + std::max(0.0, now - at_) * rate_);
    }

    double capacity_;
    double rate_;
    double tokens_;
    double at_ = 0;
  };

  std::array<Bucket, 2> buckets_;
};

}  // namespace tessarine::detail
