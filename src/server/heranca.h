// What the server inherits from the process that starts it.
#pragma once

namespace kestor {

// Gives up what a server of all clients must not have: descriptors beyond the standard ones, a umask that lets
// all users write to new files or keeps their owner from it, and core dumps, which would hold customers' data and lie
// wherever the system puts them. For the very beginning of the process, before it has descriptors of its own.
void RecusaHeranca();

}  // namespace kestor
