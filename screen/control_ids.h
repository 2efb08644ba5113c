// Ids of the main window's controls, menu commands and resources.
#pragma once

enum ControlId : int {
    idMenu = 109,
    idAboutDialog = 103,
    idIcon = 141,
    idStartupNotice = 200,
    idDevicesDialog = 201,

    idAbout = 104,
    idExit = 105,
    idShowMap = 131,
    idStart = 2000,
    idLaserIntensity = 2002,
    idPositionX = 2003,
    idPositionY = 2004,
    idProgress = 2005,
    idTime = 2006,
    idReadPositions = 2007,
    idMoveXPlus = 2013,
    idMoveYPlus = 2014,
    idMoveXMinus = 2020,
    idMoveYMinus = 2021,
    idLabel = 2103,
    idShowConfocal = 2104,
    idIlluminationOn = 2105,
    idIlluminationOff = 2106,
    idWideView = 2110,
    idPickLaserSpot = 2111,
    idLiveOn = 2112,
    idLiveOff = 2113,
    idGain = 2114,
    idExposure = 2116,
    idCameraAuto = 2117,
    idLaserOn = 2200,
    idLaserOff = 2201,
    idFocus = 32000,
    idLaserView = 32001,
    idPositionZ = 32002,
    idFocusUp = 32003,
    idFocusDown = 32004,
    idFocusUpFast = 32006,
    idFocusDownFast = 32007,
    idSampleView = 32010,
    idSaveWindowImage = 32804,
    idCameraAutoSetting = 32809,
    idReconnectStages = 32810,
    idImportImage = 32812,
    idBlueOnly = 32817,
    idConfiguration = 32820,
    idIvMeasurement = 32821,
    idSaveCameraImage = 32822,
    idSweepStart = 32823,
    idSeriesStart = 32824,
    idTimeEvolution = 32826,
    idRefreshPositions = 32829,
    idSaveMaps = 32833,
    idShowConfocalMenu = 32834,
    idShowRed = 32835,
    idShowGreen = 32836,
    idShowBlue = 32837,
    idDrawScanArea = 32838,
    idShowLog = 32840,
    idDevices = 32841,
    idScanOptions = 32850,
    idRecoverScan = 32851,
    idContinueScan = 32852,
    idSetHighestZ = 32853,
    idSetUp = 32854,
    idScanList = 32855,
    idContinueList = 32856,
    idPause = 32857,
    idPauseBehindRow = 32858,
    idShowChannel = 32860, // five of them: the channels of a lock-in amplifier, in their order
    idScans = 32878,
    idColours = 32865,
    idProfileSave = 32866, // of the window "Profile"
    idProfileText = 32867,
    idObjective = 32870, // eight of them: the objectives, in their order
    idCalibrateCamera = 32880,
    idCalibratePlay = 32881,
    idCalibrateSpot = 32882,
    idCalibrateDark = 32883,
    idRememberPlace = 32890,
    idPlaces = 32891,
    idFollowFocus = 32892,
    idFitToScreen = 32895,
};

// Of the window "Continue last scan".
enum ContinueId : int {
    idContinueConfirm = 1100,
    idContinueCancel = 1101,
    idContinueMove = 1110, // twelve of them: X, Y, Z by each step
};

// Of the window "Scan list".
enum ListId : int {
    idListTable = 1200,
    idListName = 1201,
    idListSample = 1202,
    idListNote = 1203,
    idListGoesOn = 1204,
    idListKeepsBias = 1205,
    idListEndProgram = 1206,
    idListAddArea = 1210,
    idListAddSweep = 1211,
    idListAddSeries = 1212,
    idListCopy = 1213,
    idListRemove = 1214,
    idListUp = 1215,
    idListDown = 1216,
    idListOnOff = 1217,
    idListTake = 1218,
    idListMakeSeries = 1219,
    idListLogarithmic = 1220,
    idListAndBack = 1221,
    idListOpen = 1222,
    idListSave = 1223,
    idListStart = 1224,
    idListLabel = 1230, // fourteen of them, of the fields of a row
    idListEdit = 1250,  // likewise
    idListFollowsDrift = 1270,
    idListHow = 1271,
};

// Of the window "Places".
enum PlacesId : int {
    idPlacesTable = 1600,
    idPlacesName = 1601,
    idPlacesPlane = 1602,
    idPlacesRemember = 1610,
    idPlacesGo = 1611,
    idPlacesRename = 1612,
    idPlacesUpdate = 1613,
    idPlacesFocus = 1614,
    idPlacesRemove = 1615,
    idPlacesMakePlane = 1616,
};

// Of the window "Scans".
enum ScansId : int {
    idScansTable = 1600,
    idScansFilter = 1601,
    idScansCount = 1602,
    idScansWord = 1603,
    idScansList = 1610,
    idScansShow = 1611,
    idScansPlane = 1612,
    idScansUse = 1613,
    idScansFolder = 1614,
    idScansGood = 1615,
    idScansBad = 1616,
    idScansNoMark = 1617,
};

// Of the page of the devices.
constexpr int idDevicesText = 1001;

// Of the Configuration dialog.
enum DialogId : int {
    idConfigurationDialog = 129,

    idSet = 1,
    idCloseDialog = 2,
    idConfocalCheck = 1004,
    idConnectLaser = 1005,
    idConnectStages = 1006,
    idDialogPositionX = 1007,
    idLaserOffsetX = 1008,
    idConnectCamera = 1009,
    idHandXMinus = 1010,
    idHandXPlus = 1011,
    idDialogPositionY = 1012,
    idHandYMinus = 1013,
    idHandYPlus = 1014,
    idHandStep = 1015,
    idGo = 1016,
    idLaserOffsetY = 1017,
    idSetZero = 1018,
    idInitializeInstrument = 1019,
    idInitializeCamera = 1020,
    idBias = 1023,
    idCameraAperture = 1024,
    idGpibAddress = 1025,
    idCurrentLimit = 1026,
    idAddressOctet1 = 1027,
    idAddressOctet2 = 1028,
    idLaserComPort = 1029,
    idInstrumentList = 1030,
    idAddressOctet3 = 1031,
    idAddressOctet4 = 1032,
    idAnalyzerPort = 1033,
    idAxisOrderList = 1034,
};

// Of the scan options; "OK" and "Cancel" are idSet and idCloseDialog.
enum ScanOptionsId : int {
    idScanOptionsDialog = 132,

    idArrivalList = 1040,
    idSettleTime = 1041,
    idReadingDelay = 1042,
    idReadingsPerPoint = 1043,
    idUnitFileCheck = 1044,
    idRunIn = 1045,
    idMainChannelList = 1046, // of a lock-in amplifier, like the rest
    idAuxChannelCheck = 1047,
    idSettledEdit = 1048,
    idSampleEdit = 1050,
    idNoteEdit = 1051,
    idPauseBiasCheck = 1052,
    idSettledText = 1049,
    idScriptsCheck = 1053,
    idScriptsSwitchCheck = 1054,
};

// Of the dialog "Colours"; "OK" and "Cancel" are idSet and idCloseDialog.
enum ColoursId : int {
    idColoursDialog = 32869,

    idPaletteList = 1060,
    idRangeList = 1061,
    idRangeFrom = 1062,
    idRangeTo = 1063,
    idRangeUnit = 1064,
    idOneScaleCheck = 1065,
    idLegendCheck = 1066,
};

// Of the sheet "Set-up".
enum SetUpId : int {
    idObjectiveList = 1200,
    idAddObjective = 1201,
    idRemoveObjective = 1202,
    idScaleNote = 1203,      // two of them: what the matrix means
    idObjectiveField = 1300, // the fields of the objective that is chosen, in their order
    idSetUpField = 1400,     // all other fields, in their order
};

// Of the result of a calibration; "Keep" and "Cancel" are idSet and idCloseDialog.
enum CalibrationId : int {
    idCalibrationDialog = 202,

    idCalibrationPicture = 1500,
    idCalibrationText = 1501,
};
