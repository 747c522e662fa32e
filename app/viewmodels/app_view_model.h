#pragma once

#include <filesystem>
#include <memory>

#include <QObject>
#include <QString>
#include <QStringList>

#include "app/viewmodels/cancellation_token.h"
#include "app/viewmodels/poly_split_workflow.h"
#include "app/viewmodels/settings_view_model.h"
#include "app/viewmodels/stamp_workflow.h"
#include "app/viewmodels/timeline_rebuild_workflow.h"
#include "core/settings/app_settings_store.h"

namespace norvane {

// The one controller behind the main window: it owns the settings store, the
// cancellation token and the three tool workflows, and knows which area the
// window shows.
class AppViewModel : public QObject {
    Q_OBJECT
    Q_PROPERTY(QString featureArea READ featureArea WRITE setFeatureArea NOTIFY featureAreaChanged)
    Q_PROPERTY(norvane::SettingsViewModel* settings READ settings CONSTANT)
    Q_PROPERTY(norvane::StampWorkflow* stamp READ stamp CONSTANT)
    Q_PROPERTY(norvane::PolySplitWorkflow* polySplit READ polySplit CONSTANT)
    Q_PROPERTY(norvane::TimelineRebuildWorkflow* timelineRebuild READ timelineRebuild CONSTANT)

  public:
    // "home", "ltcStamp", "polyWavSplit", "timelineRebuild".
    static QStringList featureAreas();

    // Settings from AppSettingsStore::defaultSettingsPath() (NORVANE_SETTINGS
    // when set).
    explicit AppViewModel(QObject* parent = nullptr);
    // Settings from the given file.
    explicit AppViewModel(const std::filesystem::path& settingsFile, QObject* parent = nullptr);
    ~AppViewModel() override;

    const QString& featureArea() const { return featureArea_; }
    // Ignores a name that is no area.
    Q_INVOKABLE void setFeatureArea(const QString& area);

    SettingsViewModel* settings() const { return settings_.get(); }
    StampWorkflow* stamp() const { return stamp_.get(); }
    PolySplitWorkflow* polySplit() const { return polySplit_.get(); }
    TimelineRebuildWorkflow* timelineRebuild() const { return timelineRebuild_.get(); }
    AppSettingsStore& settingsStore() { return *store_; }
    CancellationToken& cancellationToken() { return cancellationToken_; }

  signals:
    void featureAreaChanged();

  private:
    // Declaration order is destruction order reversed: the workflows (and
    // their background threads) go before the token and the store they use.
    std::unique_ptr<AppSettingsStore> store_;
    CancellationToken cancellationToken_;
    std::unique_ptr<SettingsViewModel> settings_;
    std::unique_ptr<StampWorkflow> stamp_;
    std::unique_ptr<PolySplitWorkflow> polySplit_;
    std::unique_ptr<TimelineRebuildWorkflow> timelineRebuild_;
    QString featureArea_ = QStringLiteral("home");
};

}  // namespace norvane
