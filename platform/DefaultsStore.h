#pragma once

#include <QString>

#include <memory>

class DefaultsSuite;

// Opens user-defaults suites by name.
class DefaultsStore {
public:
    virtual ~DefaultsStore() = default;
    // A new handle on the suite, or nullptr when the suite cannot be opened.
    virtual std::unique_ptr<DefaultsSuite> open(const QString& suiteName) = 0;
};
