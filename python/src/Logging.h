#pragma once

namespace lumotypes::python {

/// Gives the runtime's and the plug-in's loggers somewhere to write: the
/// log4cplus properties file named by LUMO_LOG4CPLUS_CONFIG if set, else
/// warnings and errors on stderr. Leaves a configuration the process already
/// made alone.
void configureLogging();

}  // namespace lumotypes::python
