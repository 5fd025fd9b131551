// Walking the analysis chain and dispatching on a record's type code.
#ifndef KAVRI_CAMERA_CAMERACHAIN_H
#define KAVRI_CAMERA_CAMERACHAIN_H

#include "kavri/CameraAnalysis.h"

// Visits every record in chain order with its index, counted over all
// records, the ones no analysis handles included.
template <typename Visit>
void CameraWalkChain(CameraAnalysisBase* chain, Visit visit) {
  int index = 0;
  for (CameraAnalysisBase* record = chain; record; record = record->next, ++index) visit(*record, index);
}

// Calls operation with the record as its own class; codes without an
// analysis in this library are passed over.
template <typename Operation>
void CameraDispatch(CameraAnalysisBase& record, Operation operation) {
  switch (record.type) {
    case CameraAnalysisTypeCounter:
      operation(reinterpret_cast<CameraAnalysisCounter&>(record));
      break;
    case CameraAnalysisTypeDeliverFrame:
      operation(reinterpret_cast<CameraAnalysisDeliverFrame&>(record));
      break;
    case CameraAnalysisTypeMaxOnLine:
      operation(reinterpret_cast<CameraAnalysisMaxOnLine&>(record));
      break;
    case CameraAnalysisTypeMaxOnLine2:
      operation(reinterpret_cast<CameraAnalysisMaxOnLine2&>(record));
      break;
    case CameraAnalysisTypeColorField:
      operation(reinterpret_cast<CameraAnalysisColorField&>(record));
      break;
    case CameraAnalysisTypeChangeDetect:
      operation(reinterpret_cast<CameraAnalysisChangeDetect&>(record));
      break;
    case CameraAnalysisTypeBallSingleBlock:
      operation(reinterpret_cast<CameraAnalysisBallSingleBlock&>(record));
      break;
    case CameraAnalysisTypeBallMultiBlock:
      operation(reinterpret_cast<CameraAnalysisBallMultiBlock&>(record));
      break;
    default:
      break;
  }
}

#endif
