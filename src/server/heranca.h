// What the server inherits from the process that starts it.
#pragma once

namespace kestor {

// Gives up what a server of all clients must not inherit: descriptors beyond the standard ones, a umask that lets all
// users write new files or keeps their owner from it, and core dumps, which would contain customers' data and lie
// wherever the system puts them. Called at the very start of the process, before it opens descriptors of its own.
void RecusaHeranca();

}  // namespace kestor
