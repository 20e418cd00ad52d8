// The registry of properties: the checks a host runs before it starts, and
// the README's table, which must list exactly what the registry holds.

#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <string>
#include <vector>

#include "dabo/DaboException.h"
#include "lumotypes/host/Properties.h"

namespace properties = lumotypes::host::properties;

namespace {

std::string messageOf(const orlo::dabo::Dabo::Properties& given) {
    try {
        properties::checkProperties(given);
    } catch (const orlo::dabo::DaboException& error) {
        return error.what();
    }
    return "";
}

// The rows of the README's property table, as written.
std::vector<std::string> readmeTableRows() {
    std::ifstream readme(LUMO_README);
    std::vector<std::string> rows;
    bool inTable = false;
    for (std::string line; std::getline(readme, line);) {
        if (line.rfind("| Property | Read by | Default | Meaning |", 0) == 0) {
            inTable = true;
        } else if (inTable && line.rfind("|---", 0) == 0) {
            continue;
        } else if (inTable && line.rfind("|", 0) == 0) {
            rows.push_back(line);
        } else if (inTable) {
            break;
        }
    }
    return rows;
}

}  // namespace

TEST(Properties, ReadmeTableListsEveryPropertyOfTheRegistryInItsOrder) {
    std::vector<std::string> expected;
    for (const auto& property : properties::knownProperties()) {
        expected.push_back("| `" + property.key + "` | " + property.readBy + " | " + property.defaultValue + " | " +
                           property.meaning + " |");
    }
    EXPECT_EQ(readmeTableRows(), expected);
}

TEST(Properties, RegistryHoldsEveryNamedConstantOnce) {
    std::vector<std::string> keys;
    for (const auto& property : properties::knownProperties()) {
        keys.push_back(property.key);
    }
    for (const char* key : {properties::slowJoinerDelayMs, properties::disableTypeHashCheck,
                            properties::highWaterMark, properties::maxMessageSize, properties::maxPeersPerEndpoint,
                            properties::curveServerSecretKey,
                            properties::curveServerPublicKey, properties::curvePublicKey, properties::curveSecretKey,
                            properties::curveAuthorizedKeys, properties::inProcess, properties::cpuAffinity,
                            properties::threadPriority, properties::metricsAddress}) {
        EXPECT_EQ(std::count(keys.begin(), keys.end(), key), 1) << key;
    }
    EXPECT_EQ(keys.size(), 14u);
}

TEST(Properties, NumberThatIsNotOneIsRefusedWithTheRuntimesOwnMessage) {
    EXPECT_EQ(messageOf({{properties::highWaterMark, "many"}}),
              "Property krin.runtime.highWaterMark has value 'many', which is not an integer");
    EXPECT_NE(messageOf({{properties::maxMessageSize, "1k"}}).find("krin.runtime.maxMessageSize"), std::string::npos);
    EXPECT_NE(messageOf({{properties::slowJoinerDelayMs, "soon"}}).find("krin.ps.slowJoinerDelayMs"),
              std::string::npos);
}

TEST(Properties, BooleanThatIsNotOneIsRefusedWithThePluginsOwnMessage) {
    EXPECT_EQ(messageOf({{properties::disableTypeHashCheck, "yes"}}),
              "Property krin.ps.disableTypeHashCheck has value 'yes', which is not a boolean (true or false)");
}

TEST(Properties, KeysNobodyReadsAreReturnedAndKnownOnesAreNot) {
    const auto unread = properties::checkProperties(
        {{properties::highWaterMark, "10"}, {"krin.runtime.highwatermark", "10"}, {"colour", "blue"},
         {properties::disableTypeHashCheck, "TRUE"}, {properties::curvePublicKey, "x"}});
    EXPECT_EQ(unread, (std::vector<std::string>{"colour", "krin.runtime.highwatermark"}));
}
