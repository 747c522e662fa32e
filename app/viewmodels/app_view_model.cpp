#include "app/viewmodels/app_view_model.h"

namespace norvane {

QStringList AppViewModel::featureAreas() {
    return {QStringLiteral("home"), QStringLiteral("ltcStamp"), QStringLiteral("polyWavSplit"),
            QStringLiteral("timelineRebuild")};
}

AppViewModel::AppViewModel(QObject* parent)
    : AppViewModel(AppSettingsStore::defaultSettingsPath(), parent) {}

AppViewModel::AppViewModel(const std::filesystem::path& settingsFile, QObject* parent)
    : QObject(parent),
      store_(std::make_unique<AppSettingsStore>(settingsFile)),
      settings_(std::make_unique<SettingsViewModel>(*store_)),
      stamp_(std::make_unique<StampWorkflow>(*store_, cancellationToken_)),
      polySplit_(std::make_unique<PolySplitWorkflow>(*store_)),
      timelineRebuild_(std::make_unique<TimelineRebuildWorkflow>(*store_)) {
    // Each tool starts the next launch in the folder it last wrote to.
    connect(stamp_.get(), &StampWorkflow::outputFolderUsed, settings_.get(),
            &SettingsViewModel::setDefaultOutputFolderPath);
    connect(polySplit_.get(), &PolySplitWorkflow::outputFolderUsed, settings_.get(),
            &SettingsViewModel::setPolySplitDefaultOutputFolderPath);
}

AppViewModel::~AppViewModel() {
    // Stop long work first so nothing runs while the workflows go away.
    cancellationToken_.cancel();
}

void AppViewModel::setFeatureArea(const QString& area) {
    if (featureAreas().contains(area) && area != featureArea_) {
        featureArea_ = area;
        emit featureAreaChanged();
    }
}

}  // namespace norvane
