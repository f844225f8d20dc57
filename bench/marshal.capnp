# What a discovery result says, for Cap'n Proto.
@0xd5c1a7f3b2e94806;

using Cxx = import "/capnp/c++.capnp";
$Cxx.namespace("bench::capn");

struct Info {
  value00 @0 :UInt32;
  value04 @1 :UInt32;
  value08 @2 :UInt32;
  value10 @3 :UInt64;
  value18 @4 :UInt64;
  value20 @5 :UInt16;
  value22 @6 :UInt16;
  value24 @7 :UInt16;
  value28 @8 :UInt32;
  value2c @9 :UInt32;
  value30 @10 :UInt32;
  value34 @11 :UInt8;
  value35 @12 :UInt8;
  value36 @13 :UInt8;
  value37 @14 :UInt8;
  value38 @15 :UInt32;
  value3c @16 :UInt8;
  value3d @17 :UInt8;
  value3e @18 :UInt8;
  value3f @19 :UInt8;
}

struct Element {
  id @0 :UInt8;
  payload @1 :Data;
}

struct Measurement {
  bssidLo24 @0 :UInt32;
  bssidHi24 @1 :UInt32;
  value10 @2 :UInt32;
  value40 @3 :UInt8;
  value41 @4 :UInt8;
  value44 @5 :UInt32;
  value48 @6 :UInt32;
  value78 @7 :UInt8;
  value79 @8 :UInt8;
  value98 @9 :UInt32;
  value9c @10 :UInt8;
  value9d @11 :UInt8;
  valuea0 @12 :UInt32;
  valuea4 @13 :UInt16;
  valuea6 @14 :UInt16;
  valuea8 @15 :UInt32;
  valuec8 @16 :UInt16;
  valueca @17 :UInt16;
  valuecc @18 :UInt8;
  valuecd @19 :UInt8;
  valuece @20 :UInt8;
  valuee8 @21 :UInt32;
  valueec @22 :UInt32;
  valuef0 @23 :UInt32;
  valuef4 @24 :UInt32;
  valuef8 @25 :UInt64;
  ssid @26 :Data;
  infos @27 :List(Info);
  elements @28 :List(Element);
}

struct Response {
  measurements @0 :List(Measurement);
}
