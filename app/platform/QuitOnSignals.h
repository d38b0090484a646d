#pragma once

namespace norrow {

// Makes SIGINT and SIGTERM end the Qt event loop as a normal quit would, so that the owner's
// clean-up runs (the listener stops, nothing is left half-written). Call once, after the
// application object exists.
void quitOnSignals();

} // namespace norrow
