#pragma once

namespace bc::app {

// Points every store at the throw-away demo folder and writes the sample call log there, so a
// demonstration reads and changes nothing of the user's. Call once, before any store is used.
// Throws bc::Error when the folder or the call log cannot be written.
void redirectStoresForDemo();

}  // namespace bc::app
