// What the library asks of the machine: how many threads a call may use.
#pragma once

namespace zori {

// When work is shared among threads, and among how many at most.
//
// A team costs some microseconds to open, and much more on a busy machine. Where no result depends on it, work is
// therefore shared only when one thread would be busy for at least leastMicroseconds, and never among more threads than
// it has units.
class TeamRule {
public:
  static constexpr long long leastMicroseconds = 50;

  // Work that one thread does alone.
  static constexpr TeamRule alone() { return TeamRule(false, false); }
  // So many samples, each of which takes one thread so many picoseconds.
  static constexpr TeamRule forWork(long long samples, int picosecondsPerSample)
  {
    constexpr long long picosecondsPerMicrosecond = 1000000;
    const long long least = leastMicroseconds * picosecondsPerMicrosecond;
    return TeamRule(samples >= (least + picosecondsPerSample - 1) / picosecondsPerSample, true);
  }
  // Where results depend on the team: one whenever the contract wants it, of whatever size is to be had.
  static constexpr TeamRule byContract(bool inTeam) { return TeamRule(inTeam, false); }

  // This rule for the forms that take a team at all.
  constexpr TeamRule when(bool condition) const { return condition ? *this : alone(); }
  // This rule for regions that are large enough besides.
  constexpr TeamRule fromSize(bool isLargeEnough) const { return TeamRule(isWorthIt_ && isLargeEnough, isFree_); }

  // Threads to ask for: 1 to the number that the application allows.
  int threads(int units) const;

private:
  constexpr TeamRule(bool isWorthIt, bool isFree) : isWorthIt_(isWorthIt), isFree_(isFree) {}
  bool isWorthIt_;
  bool isFree_; // no result depends on the team
};

// Upper bound of a team: what the application set for OpenMP, else the processors. The child of a fork gets 1,
// because the OpenMP runtime does not survive a fork.
int allowedThreads();

} // namespace zori
