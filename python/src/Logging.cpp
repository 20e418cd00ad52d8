#include "Logging.h"

#include <log4cplus/configurator.h>
#include <log4cplus/consoleappender.h>
#include <log4cplus/layout.h>
#include <log4cplus/logger.h>
#include <log4cplus/loggingmacros.h>

#include <cstdlib>
#include <memory>

namespace lumotypes::python {

void configureLogging() {
    // Initialised for the life of the process: runtime threads may log until it ends.
    log4cplus::initialize();
    auto root = log4cplus::Logger::getRoot();
    if (!root.getAllAppenders().empty()) {
        return;
    }
    if (const char* file = std::getenv("LUMO_LOG4CPLUS_CONFIG")) {
        log4cplus::PropertyConfigurator::doConfigure(file);
        return;
    }
    log4cplus::SharedAppenderPtr console(new log4cplus::ConsoleAppender(true /* stderr */));
    console->setLayout(std::make_unique<log4cplus::PatternLayout>("%p %c: %m%n"));
    root.addAppender(console);
    root.setLogLevel(log4cplus::WARN_LOG_LEVEL);
}

}  // namespace lumotypes::python
