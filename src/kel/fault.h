#pragma once

namespace kel {

/// Raises the signal of an arithmetic fault (SIGFPE) in the calling thread. Unless the host has
/// installed a handler this ends the process; returns when a handler did.
void RaiseArithmeticFault();

}  // namespace kel
