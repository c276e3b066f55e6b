// The real PathWindowController over the Qt views (offscreen), its file
// manager and application faked: the list on a real folder, driven with
// keys and the mouse. (The bar's place, inline completion and Ctrl+W are the
// whole-program tests'.)
#include <gtest/gtest.h>

#include <QApplication>
#include <QListView>
#include <QTest>

#include <memory>
#include <string>
#include <vector>

#include "addressbar/PathWindowController.h"
#include "fakes/FakeAccessibility.h"
#include "fakes/FakeHandlerCatalogue.h"
#include "fakes/FakePathWindowDelegate.h"
#include "fakes/MemoryDefaults.h"
#include "fakes/TestSupport.h"
#include "filemanager/FileManagerCommands.h"
#include "settings/UserDefaults.h"
#include "ui/CompletionsPopup.h"
#include "ui/PathBar.h"
#include "ui/PathBarWindow.h"
#include "ui/QtPathWindowViews.h"
#include "ui/QtScreens.h"
#include "util/Dispatch.h"

namespace jorvane::ui {
namespace {

class PathWindowWiring : public ::testing::Test {
protected:
    // A 600 x 400 window at (100, 50) with a 120-point title.
    static constexpr Rect kWindowFrame{{100, 50}, {600, 400}};
    static constexpr Rect kTitleFrame{{340, 53}, {120, 16}};

    PathWindowWiring() {
        dispatch::mainQueue().drain();
        dispatch::setTimeSource(&time_);
        const test::ElementNode application = ax_->addApplication(4242);
        window_ = ax_->addWindow(application, "folder - Thunar", kWindowFrame);
        ax_->addStaticText(window_, "folder - Thunar", kTitleFrame);
        tmp_.file("notes.txt");
        tmp_.file("nougat.txt");
        tmp_.dir("docs");
        catalogue_->answer(handlers::getPath, tmp_.str());
        // Commands succeed, as Thunar's do.
        for (std::string_view command : {handlers::reveal, handlers::showFolder, handlers::closeWindow})
            catalogue_->answer(command, "");
        QtPathWindow qt = makePathWindowViews();
        bar_ = qt.bar;
        controller_ = std::make_unique<PathWindowController>(
            ax_->element(window_), std::move(qt.views),
            PathWindowController::Dependencies{bridge_, *defaults_, workspace_, screens_, delegate_});
        connectToController(*qt.events, *controller_);
    }

    ~PathWindowWiring() override {
        catalogue_->releaseAll();
        bridge_.waitUntilIdle();
        controller_.reset();
        dispatch::mainQueue().drain();
        dispatch::setTimeSource(nullptr);
        QApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    }

    PathBar& bar() { return *bar_.lock(); }
    PathLineEdit& field() { return *bar().field(); }

    // Shows the bar and waits until it has the keyboard and its final size
    // (the text filled in after it appeared may widen it, animated).
    void show() {
        controller_->show();
        ASSERT_TRUE(QTest::qWaitForWindowActive(bar().window()));
        ASSERT_TRUE(QTest::qWaitFor([this] { return !bar().isAnimating(); }, 2000));
    }

    std::vector<std::string> handlerNames() const {
        std::vector<std::string> names;
        for (const auto& call : catalogue_->calls()) names.push_back(call.name);
        return names;
    }

    dispatch::ManualTimeSource time_;
    std::shared_ptr<test::FakeAccessibility> ax_ = std::make_shared<test::FakeAccessibility>();
    test::ElementNode window_;
    std::shared_ptr<test::FakeHandlerCatalogue> catalogue_ = std::make_shared<test::FakeHandlerCatalogue>();
    FileManagerCommands bridge_{catalogue_};
    std::unique_ptr<settings::UserDefaults> defaults_ = test::makeMemoryDefaults();
    test::FakeWorkspace workspace_;
    QtScreens screens_;
    test::FakePathWindowDelegate delegate_;
    test::TempDir tmp_;
    std::weak_ptr<PathBar> bar_;
    std::unique_ptr<PathWindowController> controller_;
};

TEST_F(PathWindowWiring, tabOpensTheListUnderTheFieldAndReturnTakesTheChosenRow) {
    show();
    controller_->setPath(tmp_.str() + "/no");
    QTest::keyClick(&field(), Qt::Key_Tab);
    CompletionsPopup& popup = *bar().popup();
    ASSERT_TRUE(popup.isVisible());
    // The folder's answer may come after the list opens, on a busy machine:
    // the list then grows to its rows.
    ASSERT_TRUE(QTest::qWaitFor([&] {
        dispatch::mainQueue().drain();
        return controller_->completionEngine().progress() == CompletionEngine::Progress::complete;
    }));
    const QRect barGeometry = bar().window()->geometry();
    const QRect fieldGeometry = field().geometry();
    EXPECT_EQ(popup.geometry(),
              QRect(barGeometry.x() + fieldGeometry.x(), barGeometry.y() + fieldGeometry.y() + fieldGeometry.height(),
                    fieldGeometry.width(), 2 * CompletionsPopup::kRowHeight))
        << "hangs from the field's bottom edge, as wide as the field, two rows high";
    EXPECT_EQ(popup.rowCount(), 2);

    QTest::keyClick(&field(), Qt::Key_Down);
    QTest::keyClick(&field(), Qt::Key_Down);
    EXPECT_EQ(popup.selectedRow(), 1);
    EXPECT_TRUE(bar().window()->isActiveWindow()) << "the bar keeps the keyboard";
    catalogue_->clearCalls();
    QTest::keyClick(&field(), Qt::Key_Return);
    EXPECT_FALSE(popup.isVisible());
    bridge_.waitUntilIdle();
    // A file is revealed in its folder.
    EXPECT_EQ(handlerNames(), (std::vector<std::string>{"finder_reveal"}));
    EXPECT_EQ(catalogue_->calls().front().params, (std::vector<std::string>{tmp_.str() + "/nougat.txt"}));
}

TEST_F(PathWindowWiring, aClickOnARowEntersIt) {
    show();
    controller_->setPath(tmp_.str() + "/d");
    QTest::mouseClick(&field(), Qt::LeftButton, {}, field().arrowRect().center());
    QListView& list = *bar().popup()->listView();
    ASSERT_TRUE(QTest::qWaitForWindowExposed(bar().popup()));
    // The folder's answer may come after the list opens, on a busy machine.
    ASSERT_TRUE(QTest::qWaitFor([&] {
        dispatch::mainQueue().drain();
        return list.model()->index(0, 0).data().toString().endsWith("docs/");
    }));
    QTest::mouseClick(list.viewport(), Qt::LeftButton, {}, list.visualRect(list.model()->index(0, 0)).center());
    bridge_.waitUntilIdle();
    EXPECT_EQ(handlerNames().back(), "finder_set_path");
    EXPECT_EQ(field().text().toStdString(), tmp_.str() + "/docs/");
}

}  // namespace
}  // namespace jorvane::ui
