#include <vantu/VNotification.h>

#include <utility>

VNotification::VNotification(std::string name) : name_(std::move(name)) {}

VNotification::~VNotification() = default;
