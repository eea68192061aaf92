// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#include <gtest/gtest.h>

#include <QDBusArgument>
#include <optional>

#include "TidewellDesktop/service/ServiceClient.h"
#include "desktop/PrivateBus.h"

namespace tidewell::desktop {
namespace {

using test::eventually;
using test::FakeService;
using test::PrivateBus;
using State = ServiceClient::State;

constexpr std::string_view serviceFile =
    "[D-BUS Service]\nName=com.vantor.tidewell.Background\nExec=/bin/false\n";

TEST(CoreService, StateFollowsTheBus) {
  EXPECT_EQ(ServiceClient(QDBusConnection("nowhere")).state(), State::noBus);

  PrivateBus bus;
  ServiceClient client(bus.connect("state"));
  const auto becomes = [&](State state) { return eventually([&] { return client.state() == state; }); };
  EXPECT_EQ(client.state(), State::unknown);
  EXPECT_TRUE(becomes(State::notInstalled));
  {
    const FakeService byHand(bus, "by-hand");
    EXPECT_TRUE(becomes(State::available));
  }
  EXPECT_TRUE(becomes(State::notInstalled));
  files::writeAtomically(bus.services().appending("com.vantor.tidewell.Background.service"), serviceFile);
  EXPECT_TRUE(becomes(State::available)) << "installed meanwhile";
  std::optional<QString> failure;
  QObject::connect(&client, &ServiceClient::openFailed, [&](const QString& words) { failure = words; });
  client.open({URL::file("/a.jpg")});
  EXPECT_TRUE(eventually([&] { return failure.has_value(); }));
  EXPECT_TRUE(failure->contains("could not be started")) << failure->toStdString();
  bus.end();
  EXPECT_TRUE(becomes(State::noBus));
  failure.reset();
  client.open({URL::file("/a.jpg")});
  EXPECT_TRUE(eventually([&] { return failure.has_value(); }));
}

TEST(CoreService, AsksOnceAndKnowsWhoAnswered) {
  PrivateBus bus;
  ServiceClient client(bus.connect("client"));
  QStringList opened, vanished;
  int undone = 0, history = 0;
  QObject::connect(&client, &ServiceClient::opened, [&](const QString& by) { opened << by; });
  QObject::connect(&client, &ServiceClient::serviceVanished, [&](const QString& who) { vanished << who; });
  QObject::connect(&client, &ServiceClient::undoDidChange, [&] { ++undone; });
  QObject::connect(&client, &ServiceClient::historyDidChange, [&] { ++history; });
  int idle = 0;
  QStringList failures;
  QObject::connect(&client, &ServiceClient::nothingToStop, [&] { ++idle; });
  QObject::connect(&client, &ServiceClient::requestFailed, [&](const QString& words) { failures << words; });
  client.stop();
  EXPECT_TRUE(eventually([&] { return idle == 1; }));

  auto service = std::make_optional<FakeService>(bus, "service");
  const QString process = service->process();
  client.open({URL::file("/p/a b%.jpg"), URL::file("/p/\xff\xc3\xa9.png")}, {.keepTimes = false});
  ASSERT_TRUE(eventually([&] { return !opened.isEmpty(); }));
  EXPECT_EQ(opened, QStringList{process});
  ASSERT_EQ(service->calls.size(), 1U);
  const auto& call = service->calls[0];
  EXPECT_EQ(call.member(), "Open");
  EXPECT_EQ(call.arguments().at(0).toStringList(),
            (QStringList{"file:///p/a%20b%25.jpg", "file:///p/%FF%C3%A9.png"}));
  const auto options = qdbus_cast<QVariantMap>(call.arguments().at(1));
  EXPECT_EQ(options, (QVariantMap{{"keep-metadata", true}, {"keep-times", false}}));

  client.announceUndoDidChange();  // not news to ourselves
  for (const char* name : {"undoDidChange", "historyDidChange"}) {
    service->bus().send(QDBusMessage::createSignal("/com/vantor/tidewell", "com.vantor.tidewell", name));
  }
  EXPECT_TRUE(eventually([&] { return history == 1; }));
  EXPECT_EQ(undone, 1);
  service->bus().unregisterService("com.vantor.tidewell.Background");  // it still works on a last batch
  EXPECT_TRUE(eventually([&] { return client.state() == State::notInstalled; }));
  EXPECT_TRUE(vanished.isEmpty());
  client.stop();
  EXPECT_TRUE(eventually([&] { return service->calls.back().member() == "ActivateAction"; }));
  QTest::qWait(100);
  EXPECT_EQ(idle, 1);
  EXPECT_EQ(failures, QStringList());
  service.reset();
  EXPECT_TRUE(eventually([&] { return !vanished.isEmpty(); }));
  EXPECT_EQ(vanished, QStringList{process});
}

TEST(CoreService, StopsWhatItDoesNotKnowToBeTakenYet) {
  PrivateBus bus;
  ServiceClient client(bus.connect("hasty"));
  int opened = 0, stopped = 0;
  QObject::connect(&client, &ServiceClient::opened, [&] { ++opened; });
  QObject::connect(&client, &ServiceClient::stopped, [&] { ++stopped; });
  FakeService service(bus, "slow");
  service.holdsOpen = true;
  client.open({URL::file("/a.jpg")});
  client.stop();
  ASSERT_TRUE(eventually([&] { return stopped == 1; }));
  ASSERT_EQ(service.calls.size(), 2U);
  EXPECT_EQ(opened, 0);
  service.bus().send(service.calls[0].createReply());
  EXPECT_TRUE(eventually([&] { return stopped == 2; })) << "what began after the first stop runs on";
  EXPECT_EQ(opened, 1);
  EXPECT_EQ(service.calls.back().member(), "ActivateAction");
}

}  // namespace
}  // namespace tidewell::desktop
