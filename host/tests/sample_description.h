#pragma once
// A small description document for unit tests: every setting kind, a dependent secret,
// a required setting without default, a lookup and a partial translation.

inline constexpr const char* sample_description = R"({"Revision":1,
"MetaData":{"Display":"Fake","Description":"A sample module.","Version":"0.1"},
"Sensors":{
 "counter_sensor":{"Name":"counter_sensor","Display":"Counter","Description":"Counts its scans.",
                   "Settings":{"Sections":["access","counting"]}},
 "topic_sensor":{"Name":"topic_sensor","Display":"Topic Watch","Description":"Needs a filter.",
                 "Settings":{"Sections":["access","topic"]}}},
"Checks":{"sample_check":{"Name":"sample_check","Sections":["access"]}},
"Sections":{
 "access":{"Name":"access","Display":"Access","Groups":["login"]},
 "counting":{"Name":"counting","Display":"Counting","Groups":["counter"]},
 "topic":{"Name":"topic","Display":"Topic","Groups":["subscription"]}},
"Groups":{
 "login":{"Name":"login","Items":[
  {"Name":"user","Display":"User","Help":"Who logs in.","Default":"guest","Text":{}},
  {"Name":"method","Display":"Method","Default":"none","Selection":{"Options":[
   {"Value":"none","Display":"None"},{"Value":"password","Display":"Password"}]}},
  {"DependsOn":"method","Condition":"password","Setting":
   {"Name":"password","Display":"Password","Text":{"Security":"SettingSecurityHigh"},
    "Flags":["SettingFlagRequired"]}}]},
 "counter":{"Name":"counter","Items":[
  {"Name":"step","Display":"Step","Default":"1",
   "IntegerSigned":{"IsMinimumSet":true,"Minimum":1,"IsMaximumSet":true,"Maximum":100}},
  {"Name":"mode","Display":"Mode","Default":"ok","Selection":{"Options":[
   {"Value":"ok","Display":"Succeed"},{"Value":"fail","Display":"Fail"}]}},
  {"Name":"scale","Display":"Scale","Default":"1","Floatingpoint":{}}]},
 "subscription":{"Name":"subscription","Items":[
  {"Name":"filter","Display":"Filter","Text":{},"Flags":["SettingFlagRequired"]}]}},
"Lookups":{"parity":{"Name":"parity","LookupValues":[
 {"Name":"even","Display":"Even","Value":0,"State":"LookupValueStateOk"},
 {"Name":"odd","Display":"Odd","Value":1,"State":"LookupValueStateWarning"}]}},
"Text":{
 "English":{"Translation":{"counter_sensor.display":{"Display":"Counter"},"counter.step.display":{"Display":"Step"},
                           "lookup.parity.1":{"Display":"Odd"}}},
 "German":{"Translation":{"counter.step.display":{"Display":"Schrittweite"}}}}})";
