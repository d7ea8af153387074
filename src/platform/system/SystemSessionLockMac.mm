#include "platform/system/SystemSessionLock.h"

#import <Foundation/Foundation.h>

namespace nuvrel {

SystemSessionLock::SystemSessionLock()
{
    id observer = [[NSDistributedNotificationCenter defaultCenter] addObserverForName:@"com.apple.screenIsLocked"
                                                                               object:nil
                                                                                queue:[NSOperationQueue mainQueue]
                                                                           usingBlock:^(NSNotification*) {
                                                                             sessionLocked();
                                                                           }];
    m_observer = (__bridge_retained void*)observer;
}

SystemSessionLock::~SystemSessionLock()
{
    if (m_observer)
        [[NSDistributedNotificationCenter defaultCenter] removeObserver:(__bridge_transfer id)m_observer];
}

void SystemSessionLock::sessionLocked()
{
    if (m_locked)
        m_locked();
}

void SystemSessionLock::screenSaverActive(bool active)
{
    if (active)
        sessionLocked();
}

} // namespace nuvrel
