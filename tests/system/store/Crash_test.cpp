// A process writes as fast as it can and is killed at a random moment, again and again. What it was
// told to be stored must be there, whole, and batches all or not at all.
#include <map>
#include <random>

#include "tessarine/system/store/internal/Domain.hpp"
#include "tests/system/store/support/ChildProcess.hpp"
#include "tests/system/store/support/TemporaryFolder.hpp"
#include "tests/system/store/support/writes.hpp"

#include <gtest/gtest.h>
#include <sched.h>

namespace tessarine::detail {
namespace {

constexpr std::int64_t writesARound = 1'000'000;
constexpr int batchSize = 10;

bool isBatch(std::int64_t number) { return number % 9 == 0; }

std::size_t sizeFor(std::int64_t number) {
  if (isBatch(number)) return number % 2 == 0 ? 40'000 : 100;  // the former only suits the database
  if (number % 31 == 0) return 300'000;
  return number % 7 == 0 ? 60'000 : number % 200;
}

PreferenceObject valueFor(std::int64_t number) {
  const std::string text(sizeFor(number), static_cast<char>('a' + number % 26));
  return PreferenceObject::Array{number, text};
}

std::string keyFor(std::int64_t number) { return "key " + std::to_string(number % 40); }
std::string batchKey(int i) { return "batch " + std::to_string(i); }

void write(Domain& domain, std::int64_t number) {
  if (!isBatch(number)) return set(domain, keyFor(number), valueFor(number));
  PreferenceObject::Dictionary batch;
  for (int i = 0; i < batchSize; ++i) batch.emplace(batchKey(i), valueFor(number));
  setAll(domain, batch);
}

/// Which write the value is of; 0 for none, -1 for half of one.
std::int64_t numberOf(const Domain::Object& value) {
  if (!value) return 0;
  const auto parts = dynamicCast<PreferenceObject::Array>(*value);
  const auto number = parts && parts->size() == 2 ? dynamicCast<std::int64_t>((*parts)[0]) : -1;
  return number && value->isIdenticalTo(valueFor(*number)) ? *number : -1;
}

class Acknowledged {
 public:
  void add(std::int64_t number) { last_[isBatch(number) ? batchKey(0) : keyFor(number)] = number; }

  void expectIn(Domain& domain) const {
    for (const auto& [key, number] : last_) EXPECT_GE(numberOf(domain.object(key)), number) << key;
    for (int i = 1; i < batchSize; ++i) {
      EXPECT_EQ(numberOf(domain.object(batchKey(i))), numberOf(domain.object(batchKey(0))));
    }
  }

 private:
  std::map<std::string, std::int64_t> last_;
};

/// One life of the writing process.
void writeAndDie(const std::string& path, int round, unsigned acknowledgements, unsigned yields,
                 Acknowledged& acknowledged) {
  ChildProcess child([&](const Channel& parent) -> bool {
    parent.send(0);
    Domain domain(path);
    for (std::int64_t number = round * writesARound + 1;; ++number) {
      write(domain, number);
      parent.send(number);
      if (number % 50 == 0) domain.synchronize();
    }
  });
  const auto hear = [&] {
    const auto number = child.receive();
    if (number && *number > 0) acknowledged.add(static_cast<std::int64_t>(*number));
    return number.has_value();
  };
  for (unsigned i = 0; i <= acknowledgements; ++i) ASSERT_TRUE(hear());
  for (unsigned i = 0; i < yields; ++i) ::sched_yield();
  child.kill();
  while (hear()) {
  }
}

TEST(Crash, WhatWasAcknowledgedSurvivesWhole) {
  std::mt19937 random(20'240'607);  // NOLINT: the same lives each time
  for (int domains = 0; domains < 10; ++domains) {
    const TemporaryFolder folder;
    Acknowledged acknowledged;
    for (int life = 1; life <= 20; ++life) {
      SCOPED_TRACE("domain " + std::to_string(domains) + ", life " + std::to_string(life));
      const unsigned acknowledgements = life % 4 == 0 ? 0 : random() % 60;
      writeAndDie(folder / "domain", life, acknowledgements, random() % 50, acknowledged);
      if (life % 3 == 0) continue;  // the next life finds what this one left
      Domain domain(folder / "domain");
      acknowledged.expectIn(domain);
      if (life % 2 == 0) {
        EXPECT_TRUE(domain.synchronize());
      }
      ASSERT_FALSE(HasFailure());
    }
    EXPECT_TRUE(folder.names("damaged").empty());
  }
}

}  // namespace
}  // namespace tessarine::detail
