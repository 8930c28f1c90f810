#include <gtest/gtest.h>
#include <vantu/VString.h>
