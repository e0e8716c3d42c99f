#pragma once

namespace quilla {

/// A sender's turn among the senders of all processes: while one lives, the mutex of the exchanges is owned.
///
/// The mutex is never released by hand. It belongs to a keeper thread that takes it and ends with the
/// outermost turn of this process; what waits for the mutex elsewhere then finds it abandoned, which counts
/// as taken. So it passes on although the thread that sends lives on. Turns of one process are nested ones:
/// they share the keeper. Used on one thread, which sends and serves; requests that other processes send to
/// its windows are served while it waits, since the mutex may be theirs.
class RequestTurn {
  public:
    /// Waits without a time limit; the wait ends when the present owner gives up its turn or ends.
    RequestTurn();
    ~RequestTurn();
    RequestTurn(const RequestTurn&) = delete;
    RequestTurn& operator=(const RequestTurn&) = delete;

    /// Whether this process has a turn or waits for one.
    [[nodiscard]] static bool IsAny();
};

} // namespace quilla
