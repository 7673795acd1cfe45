// What the server's process has from its starter.
#pragma once

namespace kestor {

// Gives up what a server of all clients must not have: descriptors beyond the standard ones, a umask that lets
// everybody write to new files, and core dumps, which would hold customers' data and lie wherever the system puts them.
// For the very beginning of the process, before it has descriptors of its own.
void RecusaHeranca();

}  // namespace kestor
