#pragma once

#include <functional>
#include <gtest/gtest.h>
#include <string>
#include <vector>

#include "fake_gentl.h"

// Runs `body` with standard input from a pipe that holds `input` and ends there, and returns what
// it wrote to standard output.
std::string RunConsole(const std::string& input, const std::function<void()>& body);

// The main of the client, under the name that the test build gives it.
int ZrClientMain();

// A fresh stand-in for every test.
class ClientTest : public ::testing::Test
{
protected:
    void SetUp() override { ResetFake(); }
    void TearDown() override { ResetFake(); }
};

// "a\nb\n" of {"a", "b"}.
std::string Lines(const std::vector<std::string>& lines);
