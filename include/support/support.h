// Includes every public header. A program that is compiled often includes the headers that it needs instead: this one
// costs about as much as all of them.
#pragma once

#include <support/date_time.h>
#include <support/encryption.h>
#include <support/event_timer_thread.h>
#include <support/events.h>
#include <support/exceptions.h>
#include <support/export.h>
#include <support/library.h>
#include <support/locales.h>
#include <support/lock_factory.h>
#include <support/locks.h>
#include <support/log_record.h>
#include <support/logging.h>
#include <support/message_sets.h>
#include <support/object_base.h>
#include <support/object_factory.h>
#include <support/object_streams.h>
#include <support/observer.h>
#include <support/producer_consumer.h>
#include <support/program_options.h>
#include <support/properties.h>
#include <support/read_write_lock.h>
#include <support/regular_expressions.h>
#include <support/service.h>
#include <support/service_control.h>
#include <support/strings.h>
#include <support/terminate_handler.h>
#include <support/text_utilities.h>
#include <support/threads.h>
#include <support/timer_subscription.h>
#include <support/timers.h>
#include <support/tree_node.h>
#include <support/utilities.h>
#include <support/version.h>
#include <support/version_macros.h>
