#include "tools/common/ToolLogging.h"

#include <log4cplus/configurator.h>
#include <log4cplus/initializer.h>
#include <log4cplus/consoleappender.h>
#include <log4cplus/layout.h>
#include <log4cplus/logger.h>

#include <memory>

namespace lumo::tools {

void configureToolLogging(const std::string& configFile) {
    static log4cplus::Initializer initializer;
    if (!configFile.empty()) {
        log4cplus::PropertyConfigurator::doConfigure(configFile);
        return;
    }
    log4cplus::SharedAppenderPtr console(new log4cplus::ConsoleAppender(true /* stderr */));
    console->setLayout(std::make_unique<log4cplus::PatternLayout>("%p %c: %m%n"));
    auto root = log4cplus::Logger::getRoot();
    root.removeAllAppenders();
    root.addAppender(console);
    root.setLogLevel(log4cplus::WARN_LOG_LEVEL);
}

}  // namespace lumo::tools
