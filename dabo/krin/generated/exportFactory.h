#pragma once

// The plug-in is built with hidden visibility; only the factories that hosts
// look up by name are exported, undecorated, so `dlsym` finds them under the
// plain `generated_krin_<Kind>_lumotypes_<T>` names.
#define LUMOTYPES_KRIN_FACTORY extern "C" __attribute__((visibility("default")))
