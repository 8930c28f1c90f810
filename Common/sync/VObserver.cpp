#include <vantu/VObserver.h>

VObserver::VObserver(void* context, VNotification* notification, Callback callback)
    : context_(context), notification_(notification), callback_(callback) {}

VObserver::~VObserver() { delete notification_; }
