#include "target/Property.h"

#include <gtest/gtest.h>

#include <thread>
#include <vector>


using vessa::target::Property;

namespace {

// (How texts are cleaned for XML names and element text is the records of tests/data/report; how a
// property is printed, every field cleaned, is the reports there and each scenario's expected.xml; its
// debug dump is in the records of tests/data/library/handmade-storage-paths.)

// The texts other than the value are shared: a setter on a copy leaves the original as it was, and
// properties made on several threads at once read back whole, each text kept once.
TEST(Property, SharedTextsStayApart) {
    const Property original("key", "v", "Label", "Said once.", "General");
    Property copy = original;
    copy.setDescription("Said twice.");
    EXPECT_EQ(original.description() + copy.description(), "Said once.Said twice.");

    std::vector<Property> made[4];
    std::vector<std::thread> threads;
    for (std::vector<Property>& out : made) {
        threads.emplace_back([&out] {
            for (int i = 0; i < 2000; ++i) {
                const std::string n = std::to_string(i % 50);
                out.emplace_back("key" + n, n, "Label", "Described " + n, "General");
            }
        });
    }
    for (std::thread& t : threads) {
        t.join();
    }
    for (const std::vector<Property>& out : made) {
        for (std::size_t i = 0; i < out.size(); ++i) {
            ASSERT_EQ(out[i].description(), "Described " + out[i].value());
            ASSERT_EQ(&out[i].description(), &made[0][i].description());
        }
    }
}

}  // namespace
