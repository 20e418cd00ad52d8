#pragma once

// The plug-in is built with hidden visibility: only what is marked here is
// seen by hosts (the exported data entity factories, the descriptor getter,
// and the topic classes, whose type information host and plug-in share).
#define LUMOTYPES_EXPORT __attribute__((visibility("default")))
