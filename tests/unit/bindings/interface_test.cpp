// What the rest of the program relies on in the interface definition.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "bindings/com/orbane/halo/task.h"
#include "bindings/com/orbane/halo/tasks_svc.h"
#include "bindings/com/orbane/lumo/std/introspection/operation_svc.h"
#include "bindings/com/orbane/lumo/std/introspection/provider_svc.h"
#include "bindings/com/orbane/lumo/std/introspection/service_svc.h"
#include "bindings/com/orbane/ryn/configuration/components/groups/keys_svc.h"
#include "bindings/com/orbane/ryn/host_settings/depots_svc.h"
#include "bindings/com/orbane/ryn/host_settings/software/components_svc.h"
#include "bindings/com/orbane/ryn/host_settings/software/ryn_svc.h"
#include "bindings/com/orbane/ryn/host_settings/software_svc.h"
#include "bindings/com/orbane/ryn/hosts/settings_svc.h"
#include "bindings/com/orbane/ryn/hosts/software/components_svc.h"
#include "bindings/com/orbane/ryn/hosts/software/ryn_svc.h"
#include "bindings/com/orbane/ryn/keel_daemon.h"
#include "bindings/com/orbane/ryn/keel_daemon/capabilities_svc.h"
#include "bindings/com/orbane/ryn/keel_daemon/components_svc.h"
#include "bindings/com/orbane/ryn/keel_daemon/configuration_svc.h"
#include "bindings/com/orbane/ryn/keel_daemon/data_processing_unit/configuration_svc.h"
#include "bindings/com/orbane/ryn/keel_daemon/data_processing_unit/ryncli_svc.h"
#include "bindings/com/orbane/ryn/keel_daemon/software_svc.h"
#include "bindings/com/orbane/ryn/keel_daemon/solutions_svc.h"
#include "bindings/com/orbane/ryn/software/installed_components_svc.h"
#include "bindings/com/orbane/ryn/software/installed_image_svc.h"
#include "bindings/com/orbane/ryn/software/installed_paks_svc.h"
#include "runtime/data/adapt.h"

namespace {

using Lumo::MessageList;
using Lumo::Data::TypeInfo;
namespace Ryn = Com::Orbane::Ryn;
namespace Halo = Com::Orbane::Halo;
namespace Introspection = Lumo::Provider::Introspection::Bindings;

template <typename Interface>
std::string Name() {
  return TypeInfo<Interface>::name();
}

TEST(Interface, EveryServiceHasItsIdentifier) {
  std::vector<std::pair<std::string, std::string>> const cases = {
      {Name<Halo::TasksSvc::AsyncServiceInterface>(), "com.orbane.halo.tasks"},
      {Name<Ryn::Hosts::SettingsSvc::AsyncServiceInterface>(), "com.orbane.ryn.hosts.settings"},
      {Name<Ryn::Hosts::Software::RynSvc::AsyncServiceInterface>(), "com.orbane.ryn.hosts.software.ryn"},
      {Name<Ryn::Hosts::Software::ComponentsSvc::AsyncServiceInterface>(),
       "com.orbane.ryn.hosts.software.components"},
      {Name<Ryn::HostSettings::SoftwareSvc::AsyncServiceInterface>(),
       "com.orbane.ryn.host_settings.software"},
      {Name<Ryn::HostSettings::DepotsSvc::AsyncServiceInterface>(), "com.orbane.ryn.host_settings.depots"},
      {Name<Ryn::HostSettings::Software::RynSvc::AsyncServiceInterface>(),
       "com.orbane.ryn.host_settings.software.ryn"},
      {Name<Ryn::HostSettings::Software::ComponentsSvc::AsyncServiceInterface>(),
       "com.orbane.ryn.host_settings.software.components"},
      {Name<Ryn::Configuration::Components::Groups::KeysSvc::AsyncServiceInterface>(),
       "com.orbane.ryn.configuration.components.groups.keys"},
      {Name<Ryn::KeelDaemon::CapabilitiesSvc::AsyncServiceInterface>(),
       "com.orbane.ryn.keel_daemon.capabilities"},
      {Name<Ryn::KeelDaemon::SoftwareSvc::AsyncServiceInterface>(), "com.orbane.ryn.keel_daemon.software"},
      {Name<Ryn::KeelDaemon::ComponentsSvc::AsyncServiceInterface>(),
       "com.orbane.ryn.keel_daemon.components"},
      {Name<Ryn::KeelDaemon::SolutionsSvc::AsyncServiceInterface>(), "com.orbane.ryn.keel_daemon.solutions"},
      {Name<Ryn::KeelDaemon::ConfigurationSvc::AsyncServiceInterface>(),
       "com.orbane.ryn.keel_daemon.configuration"},
      {Name<Ryn::KeelDaemon::DataProcessingUnit::ConfigurationSvc::AsyncServiceInterface>(),
       "com.orbane.ryn.keel_daemon.data_processing_unit.configuration"},
      {Name<Ryn::KeelDaemon::DataProcessingUnit::RyncliSvc::AsyncServiceInterface>(),
       "com.orbane.ryn.keel_daemon.data_processing_unit.ryncli"},
      {Name<Ryn::Software::InstalledComponentsSvc::AsyncServiceInterface>(),
       "com.orbane.ryn.software.installed_components"},
      {Name<Ryn::Software::InstalledImageSvc::AsyncServiceInterface>(),
       "com.orbane.ryn.software.installed_image"},
      {Name<Ryn::Software::InstalledPaksSvc::AsyncServiceInterface>(),
       "com.orbane.ryn.software.installed_paks"},
      {Name<Introspection::OperationSvc::AsyncServiceInterface>(),
       "com.orbane.lumo.std.introspection.operation"},
      {Name<Introspection::ProviderSvc::AsyncServiceInterface>(),
       "com.orbane.lumo.std.introspection.provider"},
      {Name<Introspection::ServiceSvc::AsyncServiceInterface>(), "com.orbane.lumo.std.introspection.service"},
  };
  for (auto const& [name, expected] : cases) {
    EXPECT_EQ(name, expected);
  }
}

TEST(Interface, TaskStatusNumbers) {
  using Status = Halo::Task::Status;
  EXPECT_EQ(Status::PENDING, 0);
  EXPECT_EQ(Status::RUNNING, 1);
  EXPECT_EQ(Status::SUCCEEDED, 3);
  EXPECT_EQ(Status::FAILED, 4);
  EXPECT_EQ(Status().number(), 5);
  EXPECT_EQ(Status(Status::PENDING).unknownText(), "");
}

TEST(Interface, NotificationTypeNumbers) {
  using Type = Ryn::KeelDaemon::NotificationType;
  EXPECT_EQ(Type::INFO, 0);
  EXPECT_EQ(Type::WARNING, 1);
  EXPECT_EQ(Type::ERROR, 2);
  EXPECT_EQ(Type().number(), 3);
}

TEST(Interface, ImpactAndComplianceNumbers) {
  using Ryn::KeelDaemon::ComplianceStatus;
  using Ryn::KeelDaemon::Impact;
  EXPECT_EQ(Impact::NONE, 0);
  EXPECT_EQ(Impact::MAINTENANCE_MODE, 1);
  EXPECT_EQ(Impact::REBOOT, 2);
  EXPECT_EQ(ComplianceStatus::COMPLIANT, 0);
  EXPECT_EQ(ComplianceStatus::NON_COMPLIANT, 1);
  EXPECT_EQ(ComplianceStatus::INVALID, 2);
  EXPECT_EQ(ComplianceStatus().number(), 3);
}

TEST(Interface, TheDaemonsTaskConvertsToTheApisTask) {
  auto message = std::make_shared<Com::Orbane::Lumo::Std::LocalizableMessage>();
  message->id = "m";
  auto notification = std::make_shared<Ryn::KeelDaemon::Notification>();
  notification->id = "n1";
  notification->message = message;
  auto notifications = std::make_shared<Ryn::KeelDaemon::Notifications>();
  notifications->warnings = std::list<std::shared_ptr<Ryn::KeelDaemon::Notification const>>{notification};
  Ryn::KeelDaemon::TaskInfo task;
  task.description = message;
  task.service = "keeld";
  task.operation = "unknown";
  task.status = Halo::Task::Status::RUNNING;
  task.notifications = notifications;
  task.result = Lumo::Data::DynamicStructure(Lumo::Data::IntegerValue::GetInstance(7));
  MessageList errors;
  auto const value = Lumo::Data::ToValue(task, errors);
  ASSERT_TRUE(value) << errors.front().defaultMessage();
  Halo::Task::Info info;
  ASSERT_TRUE(Lumo::Data::FromValue(value, info, errors)) << errors.front().defaultMessage();
  EXPECT_EQ(info.status, Halo::Task::Status::RUNNING);
  EXPECT_EQ(info.description->id, "m");
  EXPECT_FALSE(info.progress);
  EXPECT_FALSE(info.startTime);
  ASSERT_TRUE(info.notifications);
  EXPECT_EQ(Lumo::Data::As<Lumo::Data::StructValue>(info.notifications->value())->name(),
            "com.orbane.ryn.keel_daemon.notifications");
  EXPECT_EQ(info.result->value()->ToString(), "7");
}

TEST(Interface, ASoftwareSpecIsReadFromPlainJsonForms) {
  using Lumo::Data::StringValue;
  using Lumo::Data::StructValue;
  auto const base = StructValue::GetInstance("");
  base->SetField("version", StringValue::GetInstance("1.0.0"));
  auto const components = StructValue::GetInstance("");
  components->SetField("net", StringValue::GetInstance("2.1"));
  auto const spec = StructValue::GetInstance("");
  spec->SetField("base_image", base);
  spec->SetField("components", components);
  Ryn::KeelDaemon::SoftwareSpec record;
  MessageList errors;
  ASSERT_TRUE(Lumo::Data::FromValue(Lumo::Data::DataValuePtr(spec), record, errors));
  EXPECT_EQ(record.baseImage->version, "1.0.0");
  EXPECT_EQ(record.components->at("net"), "2.1");
  EXPECT_FALSE(record.solutions);
}

}  // namespace
