// The buffer between a tape and its host, and when the tape has to stop for want of work.
#pragma once

#include <cstdint>

namespace tamrix::model {

// Purpose: tells how long a host has to wait that reads a tape, or writes one, from its beginning on, and how
// often the tape stops.
//
// Reading, the tape fills the buffer; writing, it empties it. Either way it has work for as many bytes as it
// can move before the host must do something: the free part of the buffer, or the filled one. The host gives
// it work and waits while the buffer has no bytes, or no room, for it.
//
// While the tape has work for half the buffer it runs at its native rate; below that it slows down, down to
// its lowest rate. Out of work it stops. It goes on when it has work for nine tenths of the buffer, after the
// time that stopping, running back and starting again take. (The half and the nine tenths are assumed.)
//
// Left out: locates, the end of the tape, steps of the rate. Pure: times are handed in, in seconds, and never
// go back. One thread.
class DriveBuffer {
 public:
  struct Figures {
    double nativeRate = 0;  // bytes/s
    double lowestRate = 0;  // bytes/s, above 0
    double capacity = 0;    // bytes
    double restartSeconds = 0;
  };
  enum class Direction { kRead, kWrite };

  DriveBuffer(const Figures& figures, Direction direction, double now);

  // The host takes or gives `count` bytes, a tenth of the buffer at most. Returns when it has.
  double move(double now, std::int64_t count);
  // The host has moved the last. Returns when the tape has.
  double finish(double now);

  int stops() const { return stops_; }  // those after finish() not counted

 private:
  void advance(double to);
  void step(double seconds);

  const Figures figures_;
  const Direction direction_;
  double now_;
  double work_;  // bytes that the tape can move
  bool runs_;
  bool isFinishing_ = false;
  double starting_ = 0;  // seconds until it runs, while it starts
  int stops_ = 0;
};

}  // namespace tamrix::model
