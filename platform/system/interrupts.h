#pragma once

namespace platform {

/// While it lives, a request to end the program (Ctrl-C, the end of its terminal, a termination signal) calls a
/// function instead, from a signal handler. Only a second Ctrl-C ends the program at once. One at a time.
class InterruptHandler {
 public:
  InterruptHandler(void (*function)(void* context), void* context);
  ~InterruptHandler();
  InterruptHandler(const InterruptHandler&) = delete;
  InterruptHandler& operator=(const InterruptHandler&) = delete;
};

/// The number of the signal that has called the function of the last InterruptHandler, 0 where none has.
int LastInterrupt();

/// Makes writing to a closed pipe or beyond the limit on file sizes fail where it would end the program.
void LetWritesFail();

/// Keeps a file from being opened in the place of a standard stream that the program was started without, where it
/// would get what is meant for the stream. Writing to the stream fails.
void FillStandardStreams();

}  // namespace platform
