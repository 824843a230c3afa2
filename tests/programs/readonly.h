#pragma once

/// While one of these lives, memory comes out of a piece that can be made read-only.
struct Collected {
  Collected();
  ~Collected();
  Collected(const Collected&) = delete;
  Collected& operator=(const Collected&) = delete;
};

/// While one of these lives, whoever writes to memory that was collected ends with a fault that
/// says where. Counts may be written when a context is made and when it goes; besides, each of them
/// once, for a thread takes many references at once to what it uses often.
struct ReadOnly {
  ReadOnly();
  ~ReadOnly();
  ReadOnly(const ReadOnly&) = delete;
  ReadOnly& operator=(const ReadOnly&) = delete;
};

#ifndef TEST_READ_ONLY
inline Collected::Collected() {}
inline Collected::~Collected() {}
inline ReadOnly::ReadOnly() {}
inline ReadOnly::~ReadOnly() {}
#endif
